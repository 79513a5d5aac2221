#pragma once

// MD5, gzip and gunzip over a stream: the input is read piece by piece and the output written as it
// is made, so memory stays bounded whatever the sizes. The results are the bytes the library's
// Data::md5Hash, gzipWithZlib and gunzipWithZlib give for the whole input, with two differences
// of a careful file tool: compressed data cut short is an error, not a shorter result, and so is
// data that is not gzip or zlib.

#include "Files.h"

#include <string>

namespace zon::tool {

// Upper-case hex, as Data::md5Hash.
std::string md5OfStream(const FileDescriptor& in, const std::string& inPath);
void gzipStream(const FileDescriptor& in, const std::string& inPath, OutputFile& out);
void gunzipStream(const FileDescriptor& in, const std::string& inPath, OutputFile& out);

} // namespace zon::tool
