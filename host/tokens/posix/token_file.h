#pragma once

// What is kept of a profile's login at its provider, in ROOT/.tarvex/tokens/, for the owner of the tree alone:
//
//     user0+from0.json    the refresh token, and the access token until it expires
//     user0+from0.lock    a kernel lock: whoever holds it may ask the provider, and write
//
// The file is replaced whole and synced. A refresh token that the provider gives in the place of another is in the file
// before the access token that came with it is used.

#include <optional>
#include <string>

#include "host/system/posix/descriptor.h"
#include "host/tokens/token_trouble.h"

namespace tarvex::host {

struct StoredToken {
    std::string provider;
    std::string login;  // whom it logs in; it is nobody else's token
    std::string refresh_token;
    std::string access_token;
    long long expires = 0;  // when the access token is not used any more, seconds since 1970
    std::string refused;    // why the provider refuses the refresh token; empty as long as it does not
    long long refused_at = 0;
};

class TokenFile {
public:
    // `profile` is its path in the tree of `root`.
    TokenFile(const std::string& root, const std::string& profile);

    // Nothing when there is none. Throws TokenTrouble when it cannot be read (ForNow) or is damaged (NeedsLogin).
    std::optional<StoredToken> Read() const;

    // Throws TokenTrouble (ForNow) when it is not sure that the file would survive a power failure.
    void Write(const StoredToken& token) const;

    // Waits for whoever has the lock. Throws TokenTrouble (ForNow) when that does not come in time or is stopped.
    [[nodiscard]] Descriptor Lock(const Stops& stops) const;

    // Removes what is kept of the profile. False when something stays.
    [[nodiscard]] bool Remove() const;

private:
    void MakeFolders() const;

    std::string hidden_folder_;
    std::string folder_;
    std::string name_;  // of the files, without what tells them apart
};

}  // namespace tarvex::host
