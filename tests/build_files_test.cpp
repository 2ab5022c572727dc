// The vendor build (Android.bp) and the host build (CMake) must compile the same entity sources.
#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

std::string readFile(const std::string &path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

// Every quoted or bare *.cpp path inside the first block that starts with `opener`.
std::set<std::string> sourcesIn(const std::string &text, const std::string &opener, char closer) {
    std::set<std::string> out;
    size_t start = text.find(opener);
    if (start == std::string::npos) return out;
    size_t end = text.find(closer, start + opener.size());
    std::string block = text.substr(start, end - start);
    std::regex path(R"([A-Za-z0-9_/]+\.cpp)");
    for (auto it = std::sregex_iterator(block.begin(), block.end(), path);
         it != std::sregex_iterator(); ++it) {
        out.insert(it->str());
    }
    return out;
}

TEST(BuildFilesTest, AndroidBpListsTheCMakeSources) {
    std::string cmake = readFile(std::string(ZOK_SOURCE_DIR) + "/cmake/entity_sources.cmake");
    std::string bp = readFile(std::string(ZOK_SOURCE_DIR) + "/Android.bp");
    std::set<std::string> fromCmake = sourcesIn(cmake, "set(ZOK_ENTITY_SOURCES", ')');
    std::set<std::string> fromBp = sourcesIn(bp, "srcs: [", ']');
    ASSERT_GT(fromCmake.size(), 10u);
    EXPECT_EQ(fromCmake, fromBp);
    for (const std::string &source : fromCmake) {
        EXPECT_TRUE(std::ifstream(std::string(ZOK_SOURCE_DIR) + "/" + source).good()) << source;
    }
}

}  // namespace
