#include "shell.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace corvane {
namespace {

std::string contentOf(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::ostringstream content;
    content << file.rdbuf();
    return content.str();
}

}  // namespace

std::filesystem::path folderOfTest() {
    const auto* test = testing::UnitTest::GetInstance()->current_test_info();
    const std::filesystem::path folder =
        std::string(TEST_FOLDER "/") + test->test_suite_name() + '.' + test->name();
    std::filesystem::create_directories(folder);
    return folder;
}

Ran sh(const std::string& command) {
    const std::filesystem::path folder = folderOfTest();
    const std::string whole = "cd '" + folder.string() +
                              "' && export PATH='" CORVANE_FOLDER "':\"$PATH\" && {\n" + command +
                              "\n} > out 2> err < /dev/null";
    const int status = std::system(whole.c_str());
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contentOf(folder / "out"),
            contentOf(folder / "err")};
}

std::vector<std::string> linesOf(const std::string& text) {
    std::istringstream stream(text);
    std::vector<std::string> lines;
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

std::vector<Json> jsonLinesOf(const std::string& text) {
    std::vector<Json> values;
    for (const std::string& line : linesOf(text)) values.push_back(Json::parse(line));
    return values;
}

}  // namespace corvane
