#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

namespace {

std::vector<std::string> includedNames(std::filesystem::path const& header) {
    std::ifstream in(header);
    std::vector<std::string> names;
    std::string const start = "#include \"";
    for (std::string line; std::getline(in, line);) {
        if (line.compare(0, start.size(), start) == 0) {
            names.push_back(line.substr(start.size(), line.rfind('"') - start.size()));
        }
    }
    return names;
}

std::set<std::string> headersBesides(std::filesystem::path const& header) {
    std::set<std::string> names;
    for (auto const& entry : std::filesystem::directory_iterator(header.parent_path())) {
        if (entry.path().filename() != header.filename()) {
            names.insert(entry.path().filename().string());
        }
    }
    return names;
}

TEST(Utl, TheHeaderForEverything_IncludesEveryPublicHeaderOnce) {
    std::filesystem::path const header = std::filesystem::path(UTL_INCLUDE_FOLDER) / "Utl.h";
    std::vector<std::string> const included = includedNames(header);
    std::set<std::string> const includedOnce(included.begin(), included.end());
    EXPECT_EQ(includedOnce.size(), included.size());
    EXPECT_EQ(includedOnce, headersBesides(header));
    EXPECT_GE(included.size(), 3U);
}

}  // namespace
