#pragma once

// The account at an SMTP server that a run sends through.

#include "tarvex/settings.h"
#include "tarvex/text.h"

struct TARVEX_API CSmtpAccount {
    CString server;        // host name or address
    int port = 25;         // TCP port
    int tls = 0;           // as the key sslsmtp: 0 plain, 1 from the first byte, 2 STARTTLS
    bool esmtp = true;     // false: greet with HELO only, and never log in
    bool logs_in = false;  // whether it has a login
    int method = 0;        // as the key smtpauth_mode: 0 the best that is offered, 1 PLAIN, 2 LOGIN, 3 CRAM-MD5
    CString user;
    CString password;  // plain

    // The account that a profile has by its settings: what it leaves out for SMTP is that of POP3.
    static CSmtpAccount Of(const CPopProfileSetting& setting);
};
