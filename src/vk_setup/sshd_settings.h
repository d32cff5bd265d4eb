/* What this machine's sshd decides on a key of root, as "sshd -T" reports it. */
#pragma once

#include <string>
#include <vector>

struct SSHD_SETTINGS {
    std::vector<std::string> asKeyFile;  // read for root, absolute; empty: none, or not known
    std::vector<std::string> asFault;    // what shuts the server out, or lets it past the gate
    bool                     bStrict = false;  // others may write nowhere on the way to the file
    std::string              sUnknown;         // why sshd could not be asked; "" it could
};

/* Asks for a session of sServer as root, from the address that sFrom names, else the one
   that its name leads to. bGate: its key leads to the gate. */
SSHD_SETTINGS sctSSHD_SETTINGS(const std::string& sServer, const std::string& sFrom, bool bGate);

/* What of the way to a file makes sshd pass it over; "" nothing. */
std::string sSTRICT_FAULT(const std::string& sFile);
