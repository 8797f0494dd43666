#include "emulators/emulator_fault.h"

#include <charconv>

namespace corvane {
namespace {

using Kind = EmulatorFault::Kind;

constexpr EmulatorFault everyFault[] = {
    {Kind::none}, {Kind::shortValue}, {Kind::corrupt},  {Kind::duplicate},
    {Kind::late}, {Kind::silent},     {Kind::linkLost}, {Kind::failedMeasurement}};

constexpr std::string_view kindText(Kind kind) {
    switch (kind) {
    case Kind::none:
        return "none";
    case Kind::shortValue:
        return "short";
    case Kind::corrupt:
        return "corrupt";
    case Kind::duplicate:
        return "duplicate";
    case Kind::late:
        return "late";
    case Kind::silent:
        return "silent";
    case Kind::linkLost:
        return "link-lost";
    case Kind::failedMeasurement:
        return "failed-measurement";
    }
    return {};
}

std::optional<unsigned> parseStep(std::string_view text) {
    unsigned step = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), step);
    if (error != std::errc() || end != text.data() + text.size() || step == 0) return std::nullopt;
    return step;
}

}  // namespace

std::span<const EmulatorFault> emulatorFaults() { return everyFault; }

std::string emulatorFaultText(const EmulatorFault& fault) {
    std::string text(kindText(fault.kind));
    if (fault.step != 0) text += '@' + std::to_string(fault.step);
    return text;
}

std::optional<EmulatorFault> parseEmulatorFault(std::string_view text) {
    for (EmulatorFault fault : everyFault) {
        const std::string_view name = kindText(fault.kind);
        if (text == name) return fault;
        if (fault.kind != Kind::linkLost || !text.starts_with(name) || text[name.size()] != '@') continue;
        const std::optional<unsigned> step = parseStep(text.substr(name.size() + 1));
        if (!step) return std::nullopt;
        fault.step = *step;
        return fault;
    }
    return std::nullopt;
}

}  // namespace corvane
