// The one file that knows the library for arguments.
#include "command_line.h"

#include <CLI/CLI.hpp>

#include <map>
#include <utility>

#include "data_output.h"
#include "failure.h"
#include "models_command.h"

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

constexpr const char* programExamples = R"(Examples:
  corvane models                              the devices that can be read
)";

constexpr const char* modelsExamples = R"(Examples:
  corvane models            a table
  corvane models --json     one JSON object per line
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

class CommandLine {
public:
    CommandLine() {
        app_.require_subcommand(1);
        app_.formatter(help_);
        app_.footer(exitStatuses);
        app_.set_version_flag("--version", CORVANE_VERSION);
        help_->add(&app_, programExamples);
        addModels();
    }

    std::function<ExitStatus()> parse(int argc, char** argv) {
        try {
            app_.parse(argc, argv);
        } catch (const CLI::Success& asked) {
            std::ostringstream text;
            app_.exit(asked, text, text);
            return [text = std::move(text).str()] {
                DataOutput().text(text);
                return ExitStatus::done;
            };
        } catch (const CLI::ParseError& error) {
            return [text = std::string(error.what())]() -> ExitStatus {
                throw Failure(ExitStatus::wrongUsage, text + " (see corvane --help)");
            };
        }
        return std::move(command_);
    }

private:
    CLI::App* addCommand(const char* name, const char* summary, const char* examples) {
        CLI::App* command = app_.add_subcommand(name, summary);
        command->footer(exitStatuses);
        help_->add(command, examples);
        return command;
    }

    void addModels() {
        CLI::App* command = addCommand("models", "List the devices that can be read", modelsExamples);
        auto options = std::make_shared<ModelsOptions>();
        command->add_flag("--json", options->json, "One JSON object per line");
        command->callback([this, options] { command_ = [options] { return listModels(*options); }; });
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
