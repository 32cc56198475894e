// In place of libFuzzer: runs the target once on each file of the folders that are its arguments. A finding
// ends the program.

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

namespace {

void replay(std::filesystem::path const& path) {
    std::fprintf(stderr, "%s\n", path.filename().c_str());
    std::ifstream file(path, std::ios::binary);
    std::vector<char> const bytes{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    // A block of exactly this size, as libFuzzer passes it.
    std::vector<uint8_t> const data(bytes.begin(), bytes.end());
    LLVMFuzzerTestOneInput(data.data(), data.size());
}

std::vector<std::filesystem::path> filesOf(char const* folder) {
    std::vector<std::filesystem::path> files;
    for (auto const& entry : std::filesystem::directory_iterator(folder)) {
        files.push_back(std::filesystem::absolute(entry.path()));
    }
    return files;
}

}  // namespace

int main(int count, char** arguments) {
    std::size_t replayed = 0;
    for (int i = 1; i < count; ++i) {
        for (std::filesystem::path const& path : filesOf(arguments[i])) {
            replay(path);
            ++replayed;
        }
    }
    std::fprintf(stderr, "%zu inputs\n", replayed);
    return replayed != 0 ? 0 : 1;
}
