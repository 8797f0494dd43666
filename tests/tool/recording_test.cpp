#include <gmock/gmock.h>

#include "shell.h"

namespace corvane {
namespace {

using testing::HasSubstr;

TEST(Recording, ReplaysToTheTraceItWrote) {
    const Ran ran = sh(R"(
        for what in "ecg-td4257" "oximeter-td8255 --fault adapter-cycle" "body-tape --fault link-lost"; do
            corvane measure --platform simulated $what --record s.jsonl --trace t.jsonl > /dev/null 2>&1
            grep -q '"callback"' t.jsonl || echo "$what: nothing traced"
            corvane replay s.jsonl | cmp - t.jsonl || echo "$what"
        done)");
    EXPECT_EQ(ran.out, "");
    EXPECT_EQ(ran.err, "");
}

TEST(Recording, IsCompleteWhenInterrupted) {
    const Ran ran = sh(R"(
        rm -f lines && mkfifo lines
        corvane measure temperature-aoj20a --platform simulated --real-time --fault silent --verbose \
            --record s.jsonl --trace t.jsonl 2> lines &
        read line < lines
        kill -INT $!
        wait $!
        echo $?
        tail -n 1 s.jsonl
        corvane replay s.jsonl | cmp - t.jsonl)");
    EXPECT_EQ(ran.out, "130\n{\"destroy\":true}\n");
    EXPECT_EQ(ran.status, 0) << ran.err;
}

TEST(Recording, ThatCannotBeWrittenIsAnError) {
    for (const std::string option : {"--record", "--trace"}) {
        const Ran full = sh("corvane measure body-tape --platform simulated " + option + " /dev/full");
        EXPECT_EQ(full.status, 1);
        EXPECT_THAT(full.err, HasSubstr("/dev/full could not be written"));
    }
}

// What it opens must not take the number of a standard stream that the caller has closed.
TEST(Recording, GoesIntoItsFileWithAllStreamsClosed) {
    const Ran ran =
        sh("corvane measure body-tape --platform simulated --record s.jsonl <&- >&- 2>&-; cat s.jsonl");
    for (const Json& line : jsonLinesOf(ran.out)) EXPECT_TRUE(line.is_object());
    EXPECT_FALSE(ran.out.empty());
}

}  // namespace
}  // namespace corvane
