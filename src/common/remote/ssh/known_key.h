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

/* The names beside which the key of a line is kept, too, "FILE:LINE"; hashed ones are
   left out. A key that was kept for the first time has no line yet: sNew is the name
   that it got, and sWhere the file. */
std::vector<std::string> asSAME_KEY(const std::string& sWhere, const std::string& sNew);

/* 1 the certificate beside a key is valid no more, or not yet: sValid says when it is. */
int iCERTIFICATE_INVALID(const std::string& sKey, std::string& sValid);
