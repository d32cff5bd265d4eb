/* What the server asks of the gate of a client (mode CTRL, vk_ctrl), one line:

     run MARK WORD...           a program of the backup client with its arguments
     list MARK                  the names in the root directory
     put MARK PATH SIZE MODE    a file: its SIZE bytes come on standard input
     size MARK PATH             how many bytes a file has

   Words stand between single blanks. Letters, digits and . _ - / : = , + @ stand
   for themselves, every other byte is "%" and two hexadecimal digits, and a "%"
   alone is the empty word. So nothing ever has to be quoted, and a line with any
   other character is no request. PATH is symbolic ("gv_rw_work:x"), MODE octal.
   The gate answers as a client's shell does in the other modes (wrapper.h).

   In place of a request, svREQUEST_FOLLOWS says that its line comes first on standard
   input: an argument vector, which any user may read, then shows nothing of it. */
#pragma once

#include <string>
#include <string_view>
#include <vector>

constexpr size_t uREQUEST_MAX = size_t{96} * 1024;  // bytes of a line
constexpr size_t uREQUEST_MARK_MAX = 64;

constexpr std::string_view svREQUEST_FOLLOWS = "request";

enum REQUEST_VERB { REQUEST_RUN, REQUEST_LIST, REQUEST_PUT, REQUEST_SIZE };

struct REQUEST {
    REQUEST_VERB             eVerb = REQUEST_LIST;
    std::string              sMark;      // letters, digits, "-" and "_"
    std::vector<std::string> asWord;     // run: the program first
    std::string              sPath;      // put, size
    long                     lSize = 0;  // put: bytes
    unsigned                 uMode = 0;  // put: permissions, at most 0777
};

/* The line of a request. Result  1 formed; 0 a word holds a zero byte, or the line
   would be longer than uREQUEST_MAX: sLine is empty then. */
int iREQUEST_FORM(const REQUEST& request, std::string& sLine);

/* Takes a line apart. Result  1 it is a request; 0 it is none: sReason says why, in
   words without anything of the line. */
int iREQUEST_READ(std::string_view svLine, REQUEST& request, std::string& sReason);

/* The words of a command line as a POSIX shell would split it. Quotes and
   backslashes count; what a shell would do more than split (expand, redirect,
   chain) makes it no list of words.
   Result  1 split; 0 not: sReason names the character. */
int iPOSIX_WORDS(std::string_view svCommand, std::vector<std::string>& asWord,
                 std::string& sReason);
