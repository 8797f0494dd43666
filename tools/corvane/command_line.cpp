// The one file that knows the library for arguments.
#include "command_line.h"

#include <CLI/CLI.hpp>

#include <cmath>
#include <limits>
#include <map>
#include <utility>

#include "data_output.h"
#include "decode_command.h"
#include "doctor_command.h"
#include "emulate_command.h"
#include "failure.h"
#include "measure_command.h"
#include "models_command.h"
#include "replay_command.h"

namespace corvane::tool {
namespace {

constexpr const char* exitStatuses = R"(Exit status:
    0  done
    1  internal error, or the output could not be written
    2  wrong usage, or a faulty script
    3  a precondition of the library stopped a replay or a decoding
    4  timed out
    5  the radio is off, missing or not permitted
    6  the device reported an error
  130  interrupted)";

constexpr const char* programExamples =
    R"(Examples:
  corvane measure temperature-aoj20a                  read a thermometer with this machine's Bluetooth
  corvane measure --all --platform simulated          read every model, emulated, without a radio
  corvane measure glucose-td4257 --json --count 5     five readings, one JSON object each
  corvane models                                      the devices that can be read
  corvane decode oximeter-adfb05 81486200             what a notified value means
  corvane replay session.jsonl                        what a driver did in a recorded session
)"
#ifdef CORVANE_TOOL_HAS_BLUEZ
    R"(  corvane emulate temperature-aoj20a                  an emulated thermometer on the air, for a phone to read
  corvane doctor                                      what Bluetooth lacks here, and what helps
)"
#endif
    ;

constexpr const char* modelsExamples = R"(Examples:
  corvane models            a table
  corvane models --json     one JSON object per line
)";

constexpr const char* measureExamples = R"(Examples:
  corvane measure temperature-aoj20a
  corvane measure glucose-td4257 oximeter-td8255 --timeout 120 --json
  corvane measure body-composition-adfb885t --height 181 --age 35 --gender male
  corvane measure --all --platform simulated
  corvane measure ecg-td4257 --platform simulated --fault link-lost --seed 7 --verbose
  corvane measure body-tape --record session.jsonl --trace trace.jsonl
)";

constexpr const char* replayExamples = R"(Examples:
  corvane replay session.jsonl
  corvane replay - < session.jsonl | diff trace.jsonl -
)";

constexpr const char* decodeExamples = R"(Examples:
  corvane decode temperature-aoj20a 000000000e42
  corvane decode oximeter-adfb05 81486200 81496100 --json
  corvane decode body-composition-adfb885t fff2:01 --height 181 --age 35 --gender male
)";

constexpr const char* doctorExamples = R"(Examples:
  corvane doctor                      what Bluetooth lacks here, and what helps
  corvane doctor --adapter hci1
)";

constexpr const char* emulateExamples = R"(Examples:
  corvane emulate temperature-aoj20a                  a thermometer on the air of hci0, until Ctrl-C
  corvane emulate ecg-td4257 --adapter hci1 --seed 7
  corvane emulate oximeter-adfb05 --fault failed-measurement
)";

// Help begins with what most people came for.
class ExamplesFirst : public CLI::Formatter {
public:
    void add(const CLI::App* command, const char* examples) { examples_[command] = examples; }

    std::string make_help(const CLI::App* command, std::string name, CLI::AppFormatMode mode) const override {
        const auto found = examples_.find(command);
        const std::string examples = found == examples_.end() ? "" : found->second + std::string("\n");
        return examples + CLI::Formatter::make_help(command, std::move(name), mode);
    }

private:
    std::map<const CLI::App*, const char*> examples_;
};

constexpr const char* modelHelp = "Id or class, as `corvane models` lists them";
constexpr const char* hidden = "";  // What only tests need.
constexpr const char* simulatedGroup = "Simulated radio";
constexpr const char* recordingGroup = "Recording of a single model";

std::vector<const Model*> everyModel() { return {models().begin(), models().end()}; }

const Model& modelNamed(const std::string& name) {
    if (const Model* model = findModel(name)) return *model;
    throw Failure(ExitStatus::wrongUsage, "no model \"" + name + "\"; see corvane models");
}

std::vector<const Model*> modelsNamed(const std::vector<std::string>& names) {
    std::vector<const Model*> found;
    found.reserve(names.size());
    for (const std::string& name : names) found.push_back(&modelNamed(name));
    return found;
}

/// The library's own lets through what is no number.
CLI::Validator within(double low, double high) {
    const auto check = [=](const std::string& text) -> std::string {
        double value = NAN;
        if (CLI::detail::lexical_cast(text, value) && value >= low && value <= high) return {};
        return text + " is not within " + CLI::detail::to_string(low) + " and " +
               CLI::detail::to_string(high);
    };
    return CLI::Validator(check, {});
}

std::chrono::nanoseconds nanoseconds(double seconds) {
    return std::chrono::nanoseconds(std::llround(seconds * 1e9));
}

std::function<ExitStatus()> wrongUsage(const std::string& text) {
    return [text]() -> ExitStatus { throw Failure(ExitStatus::wrongUsage, text + " (see corvane --help)"); };
}

class CommandLine {
public:
    CommandLine() {
        app_.require_subcommand(0, 1);
        app_.formatter(help_);
        app_.footer(exitStatuses);
        app_.set_version_flag("--version", CORVANE_VERSION);
        help_->add(&app_, programExamples);
        addMeasure();
        addModels();
        addDecode();
        addReplay();
#ifdef CORVANE_TOOL_HAS_BLUEZ
        addEmulate();
        addDoctor();
#endif
    }

    std::function<ExitStatus()> parse(int argc, char** argv) {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::Success& asked) {
            std::ostringstream text;
            app_.exit(asked, text, text);
            return [text = std::move(text).str()] {
                DataOutput out;
                out.write(text);
                out.close();
                return ExitStatus::done;
            };
        } catch (const CLI::ParseError& error) {
            return wrongUsage(error.what());
        }
        if (!command_) return wrongUsage("name a command");
        return std::move(command_);
    }

private:
    CLI::App* addCommand(const char* name, const char* summary, const char* examples) {
        CLI::App* command = app_.add_subcommand(name, summary);
        command->footer(exitStatuses);
        help_->add(command, examples);
        return command;
    }

    void addMeasure() {
        CLI::App* command = addCommand("measure", "Read devices", measureExamples);
        auto options = std::make_shared<MeasureOptions>();
        auto names = std::make_shared<std::vector<std::string>>();
        auto faults = std::make_shared<std::vector<std::string>>();
        auto seconds = std::make_shared<double>(60);
        auto all = std::make_shared<bool>(false);

        auto* models = command->add_option("MODEL", *names, modelHelp);
        command->add_flag("--all", *all, "Every model")->excludes(models);
        command->add_option("--timeout", *seconds, "Give up when no reading has come for so long")
            ->type_name("SECONDS")
            ->capture_default_str()
            ->check(within(0.001, 1e6));
        command->add_option("--count", options->count, "Readings of each model")
            ->type_name("N")
            ->capture_default_str()
            ->check(within(1, 1e6));
        command->add_flag("--json", options->json, "One JSON object per reading");
        command->add_flag("--verbose", options->verbose,
                          "Show the drivers' console lines, and what BlueZ refuses");
        addProfile(command, options->arguments, /*any=*/false);

        addRadio(command, options->platform, *faults);
        addRecording(command, *options);
        command->callback([=, this] {
            command_ = [=] {
                options->models = *all ? everyModel() : modelsNamed(*names);
                options->timeout = nanoseconds(*seconds);
                options->platform.faults = parseFaults(*faults);
                return measure(*options);
            };
        });
    }

    static void addRadio(CLI::App* command, PlatformOptions& platform, std::vector<std::string>& faults) {
        command
            ->add_option("--platform", platform.name,
                         "One of: " + platformNames() + "; auto is this machine's Bluetooth")
            ->type_name("NAME")
            ->capture_default_str();
        command->add_option("--adapter", platform.adapter, "Bluetooth adapter, such as hci0")
            ->type_name("NAME");
        command
            ->add_option("--notify-path", platform.notifyPath, "How BlueZ hands values over; auto is signals")
            ->capture_default_str()
            ->check(CLI::IsMember(notifyPathNames()));

        command->add_option("--seed", platform.seed, "Another seed, another run; 1 where it is not given")
            ->type_name("N")
            ->group(simulatedGroup);
        command->add_flag("--real-time", platform.realTime, "Let time pass as it does")
            ->group(simulatedGroup);
        command->add_option("--fault", faults, "What goes wrong; may be repeated. There are " + faultNames())
            ->type_name("NAME")
            ->allow_extra_args(false)
            ->group(simulatedGroup);
    }

    static void addRecording(CLI::App* command, MeasureOptions& options) {
        command->add_option("--record", options.record, "Write the session to this file, to be replayed")
            ->type_name("FILE")
            ->group(recordingGroup);
        command->add_option("--trace", options.trace, "Write what the driver did to this file")
            ->type_name("FILE")
            ->group(recordingGroup);
    }

    void addModels() {
        CLI::App* command = addCommand("models", "List the devices that can be read", modelsExamples);
        auto options = std::make_shared<ModelsOptions>();
        command->add_flag("--json", options->json, "One JSON object per model");
        command->callback([=, this] { command_ = [=] { return listModels(*options); }; });
    }

    void addDecode() {
        CLI::App* command =
            addCommand("decode", "Show the records that notified values give", decodeExamples);
        auto options = std::make_shared<DecodeOptions>();
        auto name = std::make_shared<std::string>();
        command->add_option("MODEL", *name, modelHelp)->required();
        command
            ->add_option(
                "HEX", options->values,
                "Values in the order in which they come; `UUID:` before one tells its characteristic, "
                "where it is not the first that notifies")
            ->required();
        command->add_flag("--json", options->json, "One JSON object per record");
        addProfile(command, options->arguments, /*any=*/true);
        command->callback([=, this] {
            command_ = [=] {
                options->model = &modelNamed(*name);
                return decode(*options);
            };
        });
    }

    void addReplay() {
        CLI::App* command = addCommand("replay", "Print the trace of a session script", replayExamples);
        auto path = std::make_shared<std::string>();
        command->add_option("FILE", *path, "The script; - is standard input")->required();
        command->callback([=, this] { command_ = [=] { return replay(*path); }; });
    }

#ifdef CORVANE_TOOL_HAS_BLUEZ
    void addDoctor() {
        CLI::App* command =
            addCommand("doctor", "Say what Bluetooth needs to work from here", doctorExamples);
        auto options = std::make_shared<DoctorOptions>();
        command->add_option("--adapter", options->adapter, "The one to be used, such as hci0")
            ->type_name("NAME");
        command->add_option("--sys", options->sys)->group(hidden);
        command->callback([=, this] { command_ = [=] { return examineBluetooth(*options); }; });
    }

    void addEmulate() {
        CLI::App* command = addCommand("emulate", "Put an emulated device on the air", emulateExamples);
        auto options = std::make_shared<EmulateOptions>();
        auto name = std::make_shared<std::string>();
        auto fault = std::make_shared<std::string>("none");
        command->add_option("MODEL", *name, modelHelp)->required();
        command->add_option("--adapter", options->adapter, "Bluetooth adapter to advertise on")
            ->type_name("NAME")
            ->capture_default_str();
        command->add_option("--seed", options->seed, "Another seed, another device and person")
            ->type_name("N")
            ->capture_default_str();
        command->add_option("--fault", *fault, "What the device does wrong, one of: " + deviceFaultNames())
            ->type_name("NAME");
        command->callback([=, this] {
            command_ = [=] {
                options->model = &modelNamed(*name);
                options->fault = parseDeviceFault(*fault);
                return emulate(*options);
            };
        });
    }
#endif

    /// Where any profile is let through, the driver itself judges it.
    static void addProfile(CLI::App* command, DriverArguments& arguments, bool any) {
        constexpr const char* group = "User of the scale";
        const double limit = std::numeric_limits<double>::max();
        command->add_option("--height", arguments.height, "Centimetres")
            ->type_name("CM")
            ->capture_default_str()
            ->check(any ? within(-limit, limit) : within(0, 255))
            ->group(group);
        command->add_option("--age", arguments.age, "Years")
            ->type_name("YEARS")
            ->capture_default_str()
            ->check(any ? within(-limit, limit) : within(0, 255))
            ->group(group);
        using Gender = BodyCompositionADFB885TDeviceGender;
        const auto setGender = [&gender = arguments.gender](const std::string& name) {
            gender = name == caseName(Gender::male) ? Gender::male : Gender::female;
        };
        command->add_option_function<std::string>("--gender", setGender, "female, or male")
            ->type_name("NAME=female")
            ->check([](const std::string& name) {
                const bool known = name == caseName(Gender::female) || name == caseName(Gender::male);
                return known ? std::string() : name + " is neither female nor male";
            })
            ->group(group);
    }

    CLI::App app_{"Reads measurements from personal health devices over Bluetooth Low Energy.", "corvane"};
    std::shared_ptr<ExamplesFirst> help_ = std::make_shared<ExamplesFirst>();
    std::function<ExitStatus()> command_;
};

}  // namespace

std::function<ExitStatus()> parseCommandLine(int argc, char** argv) {
    return CommandLine().parse(argc, argv);
}

}  // namespace corvane::tool
