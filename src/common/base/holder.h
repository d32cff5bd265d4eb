/* Owners of C resources: std::unique_ptr<PGconn, FREE_BY<PQfinish>>. */
#pragma once

#include <unistd.h>

#include <cstdio>
#include <memory>
#include <utility>

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

/* A descriptor that is closed with its owner; -1 when it holds none. */
class FD {
public:
    FD() = default;
    explicit FD(int iFd) : m_iFd(iFd) {}
    FD(FD&& other) noexcept : m_iFd(std::exchange(other.m_iFd, -1)) {}
    FD& operator=(FD&& other) noexcept
    {
        if (this == &other) return *this;
        Close();
        m_iFd = std::exchange(other.m_iFd, -1);
        return *this;
    }
    FD(const FD&) = delete;
    FD& operator=(const FD&) = delete;
    ~FD() { Close(); }
    int  iGet() const { return m_iFd; }
    bool bOpen() const { return m_iFd >= 0; }
    int  iRelease() { return std::exchange(m_iFd, -1); }
    void Close()
    {
        if (m_iFd >= 0) close(m_iFd);
        m_iFd = -1;
    }

private:
    int m_iFd = -1;
};
