/* Owners of C resources: std::unique_ptr<PGconn, FREE_BY<PQfinish>>. */
#pragma once

#include <cstdio>
#include <memory>

template<auto pFree>
struct FREE_BY {
    template<class T>
    void operator()(T* p) const
    {
        static_cast<void>(pFree(p));
    }
};

/* A stdio stream, closed with its owner. */
struct CLOSE_FILE {
    void operator()(FILE* pFile) const { static_cast<void>(std::fclose(pFile)); }
};
using STREAM = std::unique_ptr<FILE, CLOSE_FILE>;
