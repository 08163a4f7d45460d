// The order in which the hosts of a service are tried.

#include "host/dns/lookup.h"

#include <algorithm>
#include <random>
#include <tuple>
#include <utility>

#include "host/dns/usable_services.h"

namespace tarvex::host {
namespace {

using Place = std::vector<ServiceRecord>::iterator;

// Which of the records comes first, as RFC 2782 draws it: those that weigh nothing stand at the beginning, where they
// have a small chance.
Place Drawn(Place begin, Place end, const std::function<unsigned(unsigned)>& draw) {
    unsigned sum = 0;
    for (Place record = begin; record != end; ++record) sum += record->weight;
    const unsigned drawn = draw(sum);
    unsigned passed = 0;
    for (Place record = begin; record != end; ++record) {
        passed += record->weight;
        if (passed >= drawn) return record;
    }
    return begin;
}

}  // namespace

std::vector<ServiceRecord> InOrderOfTrial(std::vector<ServiceRecord> records,
                                          const std::function<unsigned(unsigned)>& draw) {
    std::stable_sort(records.begin(), records.end(), [](const ServiceRecord& left, const ServiceRecord& right) {
        return std::tuple(left.priority, left.weight != 0) < std::tuple(right.priority, right.weight != 0);
    });
    for (Place next = records.begin(); next != records.end(); ++next) {
        const Place end = std::find_if(next, records.end(),
                                       [&](const ServiceRecord& record) { return record.priority != next->priority; });
        const Place drawn = Drawn(next, end, draw);
        std::rotate(next, drawn, drawn + 1);
    }
    return records;
}

ServiceAnswer UsableServices(std::vector<ServiceRecord> records) {
    if (records.empty()) return {DnsEnding::NoSuchRecord, {}, {}};
    std::erase_if(records, [](const ServiceRecord& record) { return record.target.empty() || record.target == "."; });
    if (records.empty()) return {DnsEnding::NotOffered, {}, {}};
    std::mt19937 chance(std::random_device{}());
    const auto draw = [&](unsigned most) { return std::uniform_int_distribution<unsigned>(0, most)(chance); };
    return {DnsEnding::Found, InOrderOfTrial(std::move(records), draw), {}};
}

}  // namespace tarvex::host
