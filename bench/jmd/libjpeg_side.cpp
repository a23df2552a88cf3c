// Where the jpeg_* names that libjpeg and libTarvo both define resolve in
// the bench: they must reach libjpeg, which is linked first.
#include "jmd_side.h"

#include <cstdio>
#include <dlfcn.h>
#include <jpeglib.h>

namespace tarvo::bench::jmd
{

std::string libraryOfLibjpegEntryPoints()
{
    void *const entryPoints[] = {reinterpret_cast<void *>(&jpeg_read_header),
                                 reinterpret_cast<void *>(&jpeg_start_decompress),
                                 reinterpret_cast<void *>(&jpeg_resync_to_restart)};
    std::string library;
    for (void *entryPoint : entryPoints) {
        Dl_info info;
        std::string name = dladdr(entryPoint, &info) ? info.dli_fname : "?";
        if (!library.empty() && name != library)
            return "several libraries";
        library = name;
    }
    return library;
}

} // namespace tarvo::bench::jmd
