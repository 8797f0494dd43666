// What the README shows is what there is.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "corvane/devices/catalogue.h"

namespace corvane {
namespace {

const std::filesystem::path root = CORVANE_ROOT;

std::string contents(const std::filesystem::path& file) {
    std::ostringstream text;
    text << std::ifstream(file).rdbuf();
    return text.str();
}

TEST(Readme, ShowsTheFirstProgramAsItIsCompiled) {
    const std::string program = contents(root / "examples/first_program.cpp");
    ASSERT_FALSE(program.empty());
    EXPECT_NE(contents(root / "README.md").find("```cpp\n" + program + "```\n"), std::string::npos);
}

TEST(Readme, ListsTheModelsOfTheCatalogueInItsOrder) {
    std::string expected;
    for (const Model* model : models()) {
        const std::string page = "docs/devices/" + std::string(model->id) + ".md";
        EXPECT_TRUE(std::filesystem::exists(root / page)) << page;
        std::ostringstream row;
        row << "| [`" << model->id << "`](" << page << ") | `" << model->driver << "` | " << model->kind
            << " | " << (model->nameTest == NameTest::contains ? "contains " : "") << '`' << model->name
            << "` | " << model->hostNeeds << " |\n";
        expected += row.str();
    }
    EXPECT_NE(contents(root / "README.md").find("|---|---|---|---|---|\n" + expected + '\n'),
              std::string::npos)
        << expected;
}

TEST(Readme, LinksToWhatExists) {
    for (const char* name :
         {"README.md", "docs/tool.md", "docs/devices/README.md", "docs/platforms/apple.md"}) {
        const std::string text = contents(root / name);
        for (std::size_t at = 0; (at = text.find("](", at)) != std::string::npos;) {
            at += 2;
            const std::string target = text.substr(at, text.find_first_of("#)", at) - at);
            if (target.find(' ') != std::string::npos) continue;  // a lambda in an example
            EXPECT_TRUE(std::filesystem::exists((root / name).parent_path() / target))
                << name << " links to " << target;
        }
    }
}

}  // namespace
}  // namespace corvane
