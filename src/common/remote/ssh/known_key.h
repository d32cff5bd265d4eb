/* What ssh-keygen on this server says of keys; only after a failure. */
#pragma once

#include <string>
#include <vector>

struct KNOWN_KEY {
    std::string sKept;   // fingerprint in that line of the file
    std::string sOther;  // the name beside the fingerprint that was offered, "" for none
};

/* Looks into a file of known hosts, for its line sLine and for a fingerprint. */
KNOWN_KEY sctKNOWN_KEY(const std::string& sFile, const std::string& sLine,
                       const std::string& sOffered);

/* "FILE:LINE" of the last line with these names, "" for none. */
std::string sKEPT_AT(const std::string& sFile, const std::string& sNames);

/* The names beside which the key of a line ("FILE:LINE") is kept, too; hashed ones
   are left out. */
std::vector<std::string> asSAME_KEY(const std::string& sWhere);

/* 1 the private key in a file has a passphrase. */
int iKEY_ENCRYPTED(const std::string& sKey);

/* 1 the certificate beside a key is valid no more, or not yet: sValid says when it is. */
int iCERTIFICATE_INVALID(const std::string& sKey, std::string& sValid);
