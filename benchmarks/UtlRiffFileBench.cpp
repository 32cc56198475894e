// Containers of many sub-chunks: each further one costs as much as the first.

#include "UtlRiffFile.h"

#include <cstdlib>
#include <string>

#include "BenchFiles.h"
#include "BenchRatio.h"

namespace {

using utl::RiffFile;
using utlbench::BenchFolder;

BenchFolder const PLACE;
std::string const PATH = PLACE.make("riff") + "/items.riff";

void check(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// A new container with `COUNT` sub-chunks, each written before the next is appended.
template <unsigned int COUNT>
void append() {
    RiffFile file(PATH.c_str(), COUNT);
    check(file.open(1, 1) == 0 && file.setFormType("ITEM") != 0);
    for (unsigned int i = 0; i < COUNT; ++i) {
        check(file.addSubChunk("item") != RiffFile::INVALID_SUB_CHUNK && file.write("data", 4) == 4 &&
              file.closeSubChunk() != 0);
    }
    check(file.close() != 0);
}

// A hundred times as many may take a hundred times as long, and a little more for what no longer fits into
// the caches.
UTL_RATIO_CPU(
    "append and write 10000 sub-chunks, to a hundred times 100", append<10000>,
    [] {
        for (unsigned int i = 0; i < 100; ++i) {
            append<100>();
        }
    },
    1.2);

}  // namespace
