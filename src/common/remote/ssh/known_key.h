/* What programs of ssh on this server say when they are asked; only after a failure. */
#pragma once

#include <string>
#include <vector>

/* What a program writes on both outputs until it ends or iLimitMs have passed; its exit
   status in *pStatus, where that is wanted. */
std::string sSAID_BY(const std::vector<std::string>& asArgument, int iLimitMs,
                     int* pStatus = nullptr);

struct KNOWN_KEY {
    std::string sKept;   // fingerprint in that line of the file
    std::string sOther;  // the name beside the fingerprint that was offered, "" for none
};

/* Looks into a file of known hosts.
   sOffered  fingerprint without "SHA256:" */
KNOWN_KEY sctKNOWN_KEY(const std::string& sFile, const std::string& sLine,
                       const std::string& sOffered);

/* "FILE:LINE" of the last line with these names, "" for none. */
std::string sKEPT_AT(const std::string& sFile, const std::string& sNames);

/* The names beside which the key of a line ("FILE:LINE") is kept, too; hashed ones
   are left out. */
std::vector<std::string> asSAME_KEY(const std::string& sWhere);

/* 1 the certificate beside a key is valid no more, or not yet: sValid says when it is. */
int iCERTIFICATE_INVALID(const std::string& sKey, std::string& sValid);
