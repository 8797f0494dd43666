#include "corvane/platform/simulated/radio_fault.h"

#include <charconv>

namespace corvane {
namespace {

using Kind = RadioFault::Kind;

constexpr RadioFault all[] = {
    {Kind::linkLost},  {Kind::late},    {Kind::duplicate},  {Kind::adapterCycle},
    {Kind::truncated}, {Kind::corrupt}, {Kind::earlyValue}, {Kind::asleep},
};

bool happensAtStep(Kind kind) {
    return kind == Kind::linkLost || kind == Kind::adapterCycle || kind == Kind::asleep;
}

std::optional<unsigned> parseStep(std::string_view text) {
    unsigned step = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), step);
    if (error != std::errc() || end != text.data() + text.size() || step == 0) return std::nullopt;
    return step;
}

}  // namespace

std::span<const RadioFault> radioFaults() { return all; }

std::string_view radioFaultName(Kind kind) {
    switch (kind) {
    case Kind::linkLost:
        return "link-lost";
    case Kind::late:
        return "late";
    case Kind::duplicate:
        return "duplicate";
    case Kind::adapterCycle:
        return "adapter-cycle";
    case Kind::truncated:
        return "truncated";
    case Kind::corrupt:
        return "corrupt";
    case Kind::earlyValue:
        return "early-value";
    case Kind::asleep:
        return "asleep";
    }
    return {};
}

std::optional<RadioFault> parseRadioFault(std::string_view text) {
    const std::size_t at = text.find('@');
    for (RadioFault fault : all) {
        if (text.substr(0, at) != radioFaultName(fault.kind)) continue;
        if (at == std::string_view::npos) return fault;
        const auto step = parseStep(text.substr(at + 1));
        if (!step || !happensAtStep(fault.kind)) return std::nullopt;
        fault.step = *step;
        return fault;
    }
    return std::nullopt;
}

std::string toText(const RadioFault& fault) {
    std::string text(radioFaultName(fault.kind));
    if (fault.step != 0) text += '@' + std::to_string(fault.step);
    return text;
}

}  // namespace corvane
