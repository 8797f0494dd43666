#include "tests/conformance/contracts.h"

#include "tests/conformance/contract_lists.h"

namespace corvane::conformance {

std::vector<Contract> contracts() {
    std::vector<Contract> all;
    for (const auto& list :
         {platformContracts(), centralContracts(), peripheralContracts(), deviceContracts()})
        all.insert(all.end(), list.begin(), list.end());
    return all;
}

std::vector<std::string> failuresOf(const Contract& contract, const MakeBackEnd& make) {
    Findings findings;
    try {
        contract.check(*make(), findings);
    } catch (const Findings::Broken&) {
    }
    return findings.failures;
}

}  // namespace corvane::conformance
