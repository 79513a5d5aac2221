#pragma once

// How the JPEG reader and writer take libjpeg's fatal errors. libjpeg calls error_exit, which must
// not return; ours leaves through longjmp to the jump buffer here, set by a small guarded function
// that holds no C++ objects (see JPEGReader.cpp). Messages are never printed.

#include <csetjmp>
#include <cstdio>

#include <jpeglib.h>

namespace zon {

struct JPEGErrors {
    jpeg_error_mgr manager;
    std::jmp_buf jump;
};

// Fills in errors and answers the pointer for a compress or decompress struct's err.
inline jpeg_error_mgr* silentJPEGErrors(JPEGErrors& errors)
{
    jpeg_std_error(&errors.manager);
    errors.manager.error_exit = [](j_common_ptr info) {
        std::longjmp(reinterpret_cast<JPEGErrors*>(info->err)->jump, 1);
    };
    errors.manager.output_message = [](j_common_ptr) { };
    return &errors.manager;
}

} // namespace zon
