#include <gtest/gtest.h>

#include <algorithm>

#include "tests/conformance/contract_lists.h"

namespace corvane::conformance {
namespace {

class ContractTest : public testing::Test {
public:
    ContractTest(Contract contract, MakeBackEnd make) : contract_(contract), make_(std::move(make)) {}

private:
    void TestBody() override {
        Findings findings;
        try {
            contract_.check(*make_(), findings);
        } catch (const Findings::Broken&) {
        }
        for (const std::string& failure : findings.failures) ADD_FAILURE() << failure;
    }

    const Contract contract_;
    const MakeBackEnd make_;
};

}  // namespace

bool registerConformance(const char* backEnd, const MakeBackEnd& make,
                         const std::vector<std::string_view>& except) {
    for (const auto& list :
         {platformContracts(), centralContracts(), peripheralContracts(), deviceContracts()}) {
        for (const Contract& contract : list) {
            if (std::find(except.begin(), except.end(), contract.name) != except.end()) continue;
            testing::RegisterTest(backEnd, contract.name.data(), nullptr, nullptr, __FILE__, __LINE__,
                                  [=]() -> testing::Test* { return new ContractTest(contract, make); });
        }
    }
    return true;
}

}  // namespace corvane::conformance
