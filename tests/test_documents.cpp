/* The documents against the program: options, messages and configuration keys stand
   in the code, the man page, the README, the completion and the default vk.ini. */
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>
#include <string>

namespace {

namespace fs = std::filesystem;
using TEXTS = std::set<std::string>;

// A file of the source tree; an absent one is a failure of its own.
std::string TEXT(const char* cpName)
{
    const fs::path path = fs::path(VK_SOURCE_DIR) / cpName;
    std::ifstream  in(path, std::ios::binary);
    EXPECT_TRUE(in.good()) << "cannot read " << cpName;
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

// What the first group of a pattern matches, everywhere in a text.
TEXTS FOUND(const std::string& sText, const char* cpPattern)
{
    TEXTS            found;
    const std::regex pattern(cpPattern, std::regex::ECMAScript | std::regex::multiline);
    for (std::sregex_iterator it(sText.begin(), sText.end(), pattern), end; it != end; ++it)
        found.insert((*it)[1]);
    return found;
}

// The letters that getopt is given.
TEXTS OPTIONS()
{
    const TEXTS texts = FOUND(TEXT("src/kernel/arguments.cpp"), "\"(USa:[A-Za-z:]*)\"");
    EXPECT_EQ(texts.size(), 1U) << "one option string";
    TEXTS options;
    for (const char c : texts.empty() ? "" : *texts.begin())
        if (c != ':') options.insert(std::string(1, c));
    return options;
}

TEXTS WITH_HELP(TEXTS options)
{
    options.insert("h");  // known only as a single argument
    return options;
}

// Blanks count once, as a formatter sees them, and escapes as what they show.
std::string PLAIN(std::string sText)
{
    sText = std::regex_replace(sText, std::regex("\\\\&"), "");
    sText = std::regex_replace(sText, std::regex("\\\\\\(aa"), "´");
    return std::regex_replace(sText, std::regex("\\s+"), " ");
}

TEST(DOCUMENTS, options_are_the_same_in_code_man_page_readme_completion_and_usage)
{
    const TEXTS options = OPTIONS();
    ASSERT_GE(options.size(), 10U);
    EXPECT_EQ(FOUND(TEXT("man/vk_config_client.8"), "^\\.It Fl ([A-Za-z])(?: |$)"),
              WITH_HELP(options));

    const std::string sReadme = TEXT("README.md");
    TEXTS             missing;
    for (const std::string& sOption : WITH_HELP(options))
        if (!std::regex_search(sReadme, std::regex("(^|[^\\w-])-" + sOption + "([^\\w-]|$)")))
            missing.insert(sOption);
    EXPECT_EQ(missing, TEXTS()) << "README.md lacks these";

    const TEXTS lists =
        FOUND(TEXT("packaging/vk_config_client.bash-completion"), "-W '(-U [^']*)'");
    ASSERT_EQ(lists.size(), 1U);
    EXPECT_EQ(FOUND(*lists.begin(), "-([A-Za-z])"), WITH_HELP(options));

    // The usage text leaves some options out, but names none that does not exist.
    const TEXTS usage = FOUND(TEXT("src/kernel/usage.cpp"), "^ *\" +\\[?-([A-Za-z])");
    EXPECT_GE(usage.size(), 10U);
    const TEXTS known = WITH_HELP(options);
    for (const std::string& sOption : usage) EXPECT_TRUE(known.contains(sOption)) << sOption;
}

TEST(DOCUMENTS, man_page_explains_every_message_by_its_text)
{
    // English stands first in a row of the catalogue.
    const std::string                  sCatalogue = TEXT("src/kernel/messages.cpp");
    const std::regex                   row("\\{MSG_\\w+,\\s*\"([EIW]\\d{3})-HOSTS   ([^\"]*)\"");
    std::map<std::string, std::string> code;
    for (std::sregex_iterator it(sCatalogue.begin(), sCatalogue.end(), row), end; it != end; ++it)
        code[(*it)[1]] = PLAIN((*it)[2]);
    ASSERT_EQ(code.size(), 35U);

    const std::string sMan = TEXT("man/vk_config_client.8");
    const std::regex  item("\\n\\.It Sy ([EIW]\\d{3})\\n\\\\\\(lq([^]*?)\\\\\\(rq\\n\\.br\\n[A-Z]");
    std::map<std::string, std::string> man;
    for (std::sregex_iterator it(sMan.begin(), sMan.end(), item), end; it != end; ++it)
        man[(*it)[1]] = PLAIN((*it)[2]);
    EXPECT_EQ(man, code);
}

TEST(DOCUMENTS, configuration_keys_are_the_same_in_code_man_page_and_default_file)
{
    const std::string sIni = TEXT("packaging/vk.ini");
    TEXTS             keys = FOUND(sIni, "^;([a-z_0-9]+) =");
    ASSERT_GE(keys.size(), 15U);

    TEXTS man;
    for (const std::string& sLine :
         FOUND(TEXT("man/vk_config_client.8"), "^\\.It Cm (\\[[^\\n]*)$"))
        for (const std::string& sWord : FOUND(sLine.substr(sLine.find(']')), "([a-z_0-9]+)"))
            man.insert(sWord);
    EXPECT_EQ(man, keys);

    // What the code asks for: variables by name, other keys with their section.
    const std::string sCode = TEXT("src/common/cm_config.cpp") +
                              TEXT("src/common/cm_config_paths.cpp") +
                              TEXT("src/common/cm_trace.cpp");
    TEXTS read = FOUND(sCode, "\\{\"(gv_[a-z_]+)\", \"");
    read.merge(FOUND(sCode, "== \"(gv_[a-z_]+)\""));
    read.merge(FOUND(sCode, "\"(?:general|database|remote|variables)\", \"([a-z_]+)\""));
    ASSERT_GE(read.size(), 12U);
    for (const std::string& sKey : read)
        EXPECT_TRUE(keys.contains(sKey)) << sKey << " is read, but not documented";
}

}  // namespace
