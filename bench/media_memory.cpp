// Blocks of the media pool beside glibc's malloc, jemalloc, mimalloc and a bare lock-free stack, and metadata pictures
// from pool pages to packets beside a memcpy of the same bytes.
//
//   bench_media_memory

#include "media_memory.h"

#include "gvx_common/media_memory/MediaMemPool.h"

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

int main(int, char** argv) {
    // Room for the thread-local memory of allocators that are loaded later; the loader reads it at start alone.
    if (std::getenv("GLIBC_TUNABLES") == nullptr) {
        setenv("GLIBC_TUNABLES", "glibc.rtld.optional_static_tls=16384", 1);
        execv("/proc/self/exe", argv);
    }
    if (!g_mediaPool.Init()) {
        std::fprintf(stderr, "no memory for the pool\n");
        return 2;
    }
    bench::Table blocks("Blocks of 2048 bytes: process CPU time from taking a block to having given it back");
    bench::Table pictures("Metadata pictures: pool pages to packets, bytes a CPU second");
    const bool measured = MeasureBlocks(blocks) && MeasurePictures(pictures);
    const bool met = blocks.Print();
    const bool picturesMet = pictures.Print();
    g_mediaPool.UnInit();
    return measured && met && picturesMet ? 0 : 1;
}
