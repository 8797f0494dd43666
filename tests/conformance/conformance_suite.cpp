#include <gtest/gtest.h>

#include <algorithm>

#include "tests/conformance/contracts.h"

namespace corvane::conformance {
namespace {

class ContractTest : public testing::Test {
public:
    ContractTest(Contract contract, MakeBackEnd make) : contract_(contract), make_(std::move(make)) {}

private:
    void TestBody() override {
        for (const std::string& failure : failuresOf(contract_, make_)) ADD_FAILURE() << failure;
    }

    const Contract contract_;
    const MakeBackEnd make_;
};

}  // namespace

bool registerConformance(const char* backEnd, const MakeBackEnd& make,
                         const std::vector<std::string_view>& except) {
    for (const Contract& contract : contracts()) {
        if (std::find(except.begin(), except.end(), contract.name) != except.end()) continue;
        testing::RegisterTest(backEnd, contract.name.data(), nullptr, nullptr, __FILE__, __LINE__,
                              [=]() -> testing::Test* { return new ContractTest(contract, make); });
    }
    return true;
}

}  // namespace corvane::conformance
