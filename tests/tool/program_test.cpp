#include <gmock/gmock.h>

#include "corvane/devices/catalogue.h"
#include "shell.h"

namespace corvane {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

TEST(Program, ListsTheCatalogue) {
    const std::vector<Json> listed = jsonLinesOf(sh("corvane models --json").out);
    const std::vector<std::string> table = linesOf(sh("corvane models").out);
    ASSERT_EQ(listed.size(), models().size());
    ASSERT_EQ(table.size(), models().size() + 1);
    for (std::size_t i = 0; i < listed.size(); ++i) {
        const Model& model = *models()[i];
        EXPECT_EQ(listed[i]["id"], model.id);
        EXPECT_EQ(listed[i]["class"], model.driver);
        EXPECT_EQ(listed[i]["nameTest"] == "contains", model.recognises(std::string(model.name) + "+"));
        for (const std::string_view fact : {model.id, model.driver, model.kind, model.name, model.hostNeeds})
            EXPECT_THAT(table[i + 1], HasSubstr(std::string(fact)));
        EXPECT_THAT(table[i + 1], HasSubstr(model.service.uuidString()));
    }
}

TEST(Program, HelpLeadsWithExamplesAndTellsTheExitStatus) {
    for (const char* command : {"", "models", "measure", "decode", "replay"}) {
        const Ran ran = sh(std::string("corvane ") + command + " --help");
        EXPECT_EQ(ran.status, 0);
        EXPECT_THAT(ran.out, StartsWith(std::string("Examples:\n  corvane ") + command));
        EXPECT_THAT(ran.out, HasSubstr("130  interrupted"));
    }
}

TEST(Program, WrongUsageSaysWhatIsWrongAndEndsWithTwo) {
    struct Case {
        const char* command;
        const char* message;
    };
    const Case cases[] = {
        {"corvane", "name a command"},
        {"corvane fly", "fly"},
        {"corvane models --jsn", "--jsn"},
        {"corvane measure", "--all"},
        {"corvane measure thermos", "no model \"thermos\""},
        {"corvane measure --all body-tape", "excludes"},
        {"corvane measure body-tape --platform moon", "no platform \"moon\""},
        {"corvane measure body-tape --platform simulated --adapter hci0", "--adapter"},
        {"corvane measure body-tape --platform simulated --notify-path socket", "--notify-path"},
        {"corvane measure body-tape --notify-path pigeon", "signals"},
        {"corvane measure body-tape --platform simulated --fault gremlins", "adapter-cycle"},
        {"corvane measure body-tape --platform simulated --fault late --fault silent", "one fault"},
        {"corvane measure body-tape --timeout 0", "--timeout"},
        {"corvane measure body-tape --timeout nan", "--timeout"},
        {"corvane measure body-tape --count 0", "--count"},
        {"corvane measure body-tape --count 1.5", "--count"},
        {"corvane measure body-tape --height 256", "--height"},
        {"corvane measure body-tape --age -1", "--age"},
        {"corvane measure body-tape --gender other", "--gender"},
        {"corvane measure --all --platform simulated --record s.jsonl", "single model"},
        {"corvane measure body-tape ecg-td4257 --platform simulated --trace t.jsonl", "single model"},
        {"corvane measure body-tape --platform simulated --record s --trace s", "a file each"},
        {"corvane measure body-tape --platform simulated --record no/such/folder/s", "no/such/folder/s"},
        {"corvane decode body-tape", "HEX"},
        {"corvane decode body-tape 123", "hexadecimal"},
        {"corvane decode body-tape zz", "hexadecimal"},
        {"corvane decode body-tape fff2:00", "no characteristic \"fff2\""},
        {"corvane decode temperature-aoj20a --height inf 000000000e42", "--height"},
        {"corvane replay no-such-file", "no-such-file"},
        {"corvane replay .", "line 1"},
        {"echo '{}' | corvane replay -", "line 1"},
    };
    for (const Case& c : cases) {
        const Ran ran = sh(c.command);
        EXPECT_EQ(ran.status, 2) << c.command;
        EXPECT_EQ(ran.out, "") << c.command;
        EXPECT_THAT(ran.err, StartsWith("corvane: ")) << c.command;
        EXPECT_THAT(ran.err, HasSubstr(c.message)) << c.command;
        EXPECT_EQ(linesOf(ran.err).size(), 1u) << c.command;
    }
}

TEST(Program, OutputThatCannotBeWrittenIsAnError) {
    sh(R"(echo '{"device":"body-tape"}' > s.jsonl; echo '{"call":"getResult"}' >> s.jsonl)");
    for (const std::string command :
         {"corvane --help", "corvane models", "corvane models --json",
          "corvane measure body-tape --platform simulated", "corvane measure --all --platform simulated",
          "corvane decode temperature-aoj20a 000000000e42", "corvane replay s.jsonl"}) {
        const Ran full = sh(command + " > /dev/full");
        EXPECT_EQ(full.status, 1) << command;
        EXPECT_THAT(full.err, HasSubstr("cannot write to standard output: No space left")) << command;
        const Ran closed = sh(command + " >&-");
        EXPECT_EQ(closed.status, 1) << command;
        EXPECT_THAT(closed.err, HasSubstr("cannot write to standard output: Bad file")) << command;
        const Ran broken =
            sh("rm -f pipe && mkfifo pipe && { : < pipe & } && exec 5> pipe && wait && " + command + " >&5");
        EXPECT_EQ(broken.status, 1) << command;
        EXPECT_THAT(broken.err, HasSubstr("cannot write to standard output: Broken pipe")) << command;
    }
}

TEST(Program, ReplaysAndTellsHowTheReplayEnded) {
    const std::string begin = "echo '{\"device\":\"temperature-aoj20a\"}\n";
    struct Case {
        const char* script;
        int status;
        const char* out;
        const char* err;
    };
    const Case cases[] = {
        {R"({"call":"getResult"})", 0, "{\"console\":\"temperatureInfo not found\"}\n{\"result\":null}\n",
         ""},
        {"{\"call\":\"getResult\"}\n\n{\"call\":\"fly\"}", 2,
         "{\"console\":\"temperatureInfo not found\"}\n{\"result\":null}\n", "standard input: line 4: "},
        {R"({"call":"startScan"}
            {"event":"discovered","peripheral":"p","identifier":"6E400001-B5A3-F393-E0A9-E50E24DCCA9E","name":"AOJ-20A"}
            {"event":"services","peripheral":"p","services":["ffe0"]}
            {"event":"characteristics","peripheral":"p","service":0,"characteristics":["ffe1"]}
            {"event":"value","peripheral":"p","service":0,"characteristic":0,"value":"00"})",
         3, "{\"fatal\":", ""},
    };
    for (const Case& c : cases) {
        const Ran ran = sh(begin + c.script + "' | corvane replay -");
        EXPECT_EQ(ran.status, c.status);
        EXPECT_THAT(ran.out, HasSubstr(c.out));
        EXPECT_THAT(ran.err, HasSubstr(c.err));
    }
}

}  // namespace
}  // namespace corvane
