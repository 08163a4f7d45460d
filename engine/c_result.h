#pragma once

// The result of a run as the interface for C hands it out.

#include <string>
#include <vector>

#include "tarvex/result.h"
#include "tarvex/tarvex_c.h"

namespace tarvex {

// The name of a directory of the tree for hosts in C: "user0/from0".
std::string NameBelow(const CString& root, const CString& path);

// The struct's texts are those of the failure.
tarvex_failure Told(const CRunFailure& failure);

// Owns what the members of the struct point to. Not to be moved: they point into it.
class CResultForC {
public:
    CResultForC(const CString& root, const CString& profile, CRunResult result);
    CResultForC(const CResultForC&) = delete;
    CResultForC& operator=(const CResultForC&) = delete;

    const tarvex_result& Get() const { return told_; }

private:
    void TellAddresses(const CString& root);
    void TellNotFetched();

    CRunResult result_;
    std::string profile_;
    std::vector<std::string> address_names_;
    std::vector<tarvex_address> addresses_;
    std::vector<tarvex_not_fetched> not_fetched_;
    tarvex_failure mailbox_;
    tarvex_failure delivery_;
    tarvex_result told_{};
};

}  // namespace tarvex
