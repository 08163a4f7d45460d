// Looks records up by the resolver of Windows, which knows no time-out: its work is left behind when it takes too long.

#include "host/dns/lookup.h"

#include <windows.h>

#include <windns.h>  // needs what that declares

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "host/dns/usable_services.h"
#include "host/system/windows/wide.h"

namespace tarvex::host {
namespace {

struct FreeRecords {
    void operator()(DNS_RECORDW* records) const {
        DnsRecordListFree(reinterpret_cast<DNS_RECORD*>(records), DnsFreeRecordList);
    }
};
using Records = std::unique_ptr<DNS_RECORDW, FreeRecords>;

// One look-up, shared by who waits for it and by the thread that does it.
struct Query {
    std::wstring name;
    WORD type = 0;
    std::mutex mutex;
    std::condition_variable done;
    std::optional<DNS_STATUS> status;
    Records records;

    void Run() {
        PDNS_RECORD found = nullptr;
        const DNS_STATUS ended =
            DnsQuery_W(name.c_str(), type, DNS_QUERY_STANDARD | DNS_QUERY_TREAT_AS_FQDN, nullptr, &found, nullptr);
        const std::lock_guard lock(mutex);
        records.reset(reinterpret_cast<DNS_RECORDW*>(found));
        status = ended;
        done.notify_all();
    }
};

// Nothing is found, or the records of the type are.
template <class Record>
std::optional<DnsAnswer<Record>> Ending(DNS_STATUS status) {
    if (status == ERROR_SUCCESS) return std::nullopt;
    if (status == DNS_ERROR_RCODE_NAME_ERROR || status == DNS_INFO_NO_RECORDS) {
        return DnsAnswer<Record>{DnsEnding::NoSuchRecord, {}, {}};
    }
    return DnsAnswer<Record>{DnsEnding::Failed, {}, "the DNS: error " + std::to_string(status)};
}

// Adds what `take` makes of each record of the answer.
template <class Record, class Add>
DnsAnswer<Record> LookUp(const std::string& name, WORD type, const DnsSettings& settings, const Add& add) {
    if (!settings.server.empty()) return {DnsEnding::Failed, {}, "this system's DNS is asked by its own servers only"};
    if (name.find('\0') != std::string::npos) return {DnsEnding::Failed, {}, "no name that the DNS could know"};
    const auto query = std::make_shared<Query>();
    query->name = Wide(CP_UTF8, name);
    query->type = type;
    std::thread([query] { query->Run(); }).detach();
    std::unique_lock lock(query->mutex);
    if (!query->done.wait_for(lock, settings.timeout, [&] { return query->status.has_value(); })) {
        return {DnsEnding::Failed, {}, "no answer from the DNS in time"};
    }
    if (const auto ending = Ending<Record>(*query->status)) return *ending;
    DnsAnswer<Record> answer{DnsEnding::Found, {}, {}};
    for (const DNS_RECORDW* record = query->records.get(); record; record = record->pNext) {
        if (record->wType == type) add(answer.records, record->Data);
    }
    if (answer.records.empty()) answer.ending = DnsEnding::NoSuchRecord;
    return answer;
}

}  // namespace

ServiceAnswer LookUpServices(const std::string& name, const DnsSettings& settings) {
    ServiceAnswer answer = LookUp<ServiceRecord>(name, DNS_TYPE_SRV, settings, [](auto& records, const auto& data) {
        records.push_back({Utf8(data.SRV.pNameTarget), data.SRV.wPort, data.SRV.wPriority, data.SRV.wWeight});
    });
    return answer.ending == DnsEnding::Found ? UsableServices(std::move(answer.records)) : answer;
}

TextAnswer LookUpTexts(const std::string& name, const DnsSettings& settings) {
    return LookUp<std::string>(name, DNS_TYPE_TEXT, settings, [](auto& records, const auto& data) {
        std::string text;
        for (DWORD i = 0; i < data.TXT.dwStringCount; ++i) text += Utf8(data.TXT.pStringArray[i]);
        records.push_back(std::move(text));
    });
}

}  // namespace tarvex::host
