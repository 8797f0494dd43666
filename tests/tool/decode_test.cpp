#include <gmock/gmock.h>

#include "shell.h"

namespace corvane {
namespace {

using testing::HasSubstr;

TEST(Decode, ShowsWhatTheDriverMakesOfTheValues) {
    struct Case {
        const char* arguments;
        int status;
        const char* out;
        const char* err;
    };
    const Case cases[] = {
        {"temperature-aoj20a 000000000e42", 0, "temperature 36.5\n", ""},
        {"TemperatureAOJ20ADevice 000000000E42 --json", 0,
         R"({"temperature":"36.5","uuid":"00000000-0000-0000-0000-000000000000"})"
         "\n",
         ""},
        {"oximeter-adfb05 8001020304 81486200 81ff7f00 81496100", 0, "oxygen 98, bpm 72\noxygen 97, bpm 73\n",
         ""},
        {"oximeter-td8255 514962000048a300", 0, "oxygen 98, bpm 72\n", ""},
        {"blood-pressure-td3140 515400785048a300 515400000000a54a", 0, "pluse 72, sys 120, dia 80\n", ""},
        {"body-tape 3132332e3550 49", 6, "", "BodyTapeInfo not found"},
        {"body-tape 3132332e355049", 0, "measure 123.5, unit inch\n", ""},
        {"multi-monitoring-benecheck 00", 0, "", "no record"},
        // From either characteristic, and with a profile.
        {"body-composition-adfb885t 42000000000000000000000000029900e1000001 "
         "fff2:42010a0000000001f50000001901c2 --height 181.5 --age 35 --gender male",
         0,
         "weight 66.5, fat 26.0, bone 2.5, water 45.0, muscle 50.1, bmi 22.5, height 181.5, age 35, gender "
         "male\n",
         ""},
        {"temperature-aoj20a 000000000e42 00", 3, "temperature 36.5\n", "precondition failed: "},
        {"body-composition-adfb885t 00 --height 256", 3, "", "precondition failed: "},
        {"ecg-td4257 00000000007f00", 3, "", "precondition failed: "},
    };
    for (const Case& c : cases) {
        const Ran ran = sh(std::string("corvane decode ") + c.arguments);
        EXPECT_EQ(ran.status, c.status) << c.arguments;
        EXPECT_EQ(ran.out, c.out) << c.arguments;
        EXPECT_THAT(ran.err, HasSubstr(c.err)) << c.arguments;
    }
}

}  // namespace
}  // namespace corvane
