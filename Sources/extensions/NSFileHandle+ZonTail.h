#pragma once

// The C functions under NSFileHandle(ZonTail), whose readLastLines is a member of FileHandle
// (platform/io/FileHandle.h). The backwards byte search is the C library's memrchr (<string.h>,
// glibc): the address of the last occurrence of a byte among the first n bytes, or null. It is
// not defined again here, since a second definition would replace the C library's for every
// program that links the library.

#include "platform/Export.h"
#include "platform/io/FileHandle.h"

#include <cstddef>
#include <string.h>

// read(2) that goes on through interruptions (EINTR). Any other failure prints
// "ERROR: (<errno>) <its text>" and a line feed on standard output and answers 0; otherwise the
// count read.
extern "C" ZON_EXPORT size_t safe_read(int fd, void* buffer, size_t length);
