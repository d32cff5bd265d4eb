/* A command's output on its way to the caller: lines for lists and verdicts, bytes
   for files, bounded. */
#pragma once

#include <string>
#include <string_view>

#include "../common/LL.h"

constexpr size_t uOUTPUT_MAX = size_t{16} * 1024 * 1024;

/* Where the output goes. Lines are valid UTF-8 without control characters: tabs are
   blanks, others are dropped. */
struct OUTPUT {
    t_LL        LL_Lines = nullptr;  // receives each line, or null
    int         iFile = -1;          // receives the bytes as they came, or -1
    int         iFileErrno = 0;      // why the file lacks some of them
    std::string sWantedStart;        // "KEY=" of an answer that is looked for, or empty
    std::string sLastLine;           // last line that is not blank; these three are cut
    std::string sStatusLine;         // last line of the form STATUS=...
    std::string sWantedLine;         // last line that begins with sWantedStart
};

class OUTPUT_SINK {
public:
    explicit OUTPUT_SINK(OUTPUT& output) : m_output(output) {}
    void Take(std::string_view svBytes);
    /* The last line may lack its end. */
    void Finish();

private:
    void AddToLine(std::string_view svBytes);
    void Line();
    void ToFile(std::string_view svBytes);

    OUTPUT&     m_output;
    std::string m_sLine;             // the line being read, control characters dropped
    char        m_cBits = 0;         // of its bytes, all together: the highest says not ASCII
    size_t      m_uLines = 0;        // what the lines cost so far, their places in a list included
    size_t      m_uFile = 0;         // bytes that came for the file
    bool        m_bDropped = false;  // of the lines, the last ones are missing
};
