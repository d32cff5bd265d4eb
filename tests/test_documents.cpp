/* The documents against the program: options, messages and configuration keys stand
   in the code, the man page, the completion and the default vk.ini. */
#include <map>
#include <regex>
#include <set>

#include "common/config/keys.h"
#include "sandbox_fixture.h"

namespace {

using WORDS = std::set<std::string>;

// A file of the source tree; an absent one is a failure of its own.
std::string TEXT(const char* cpName)
{
    const std::string sPath = std::string(VK_SOURCE_DIR) + "/" + cpName;
    EXPECT_NE(sREAD_FILE(sPath), "") << sPath;
    return sREAD_FILE(sPath);
}

// What the first group of a pattern matches, everywhere in a text.
WORDS FOUND(const std::string& sText, const char* cpPattern)
{
    WORDS            found;
    const std::regex pattern(cpPattern, std::regex::ECMAScript | std::regex::multiline);
    for (std::sregex_iterator it(sText.begin(), sText.end(), pattern), end; it != end; ++it)
        found.insert((*it)[1]);
    return found;
}

// The letters that getopt is given, and "h", known only as a single argument.
WORDS OPTIONS()
{
    const WORDS texts = FOUND(TEXT("src/kernel/vk_config_client.h"), "\"(USa:[A-Za-z:]*)\"");
    EXPECT_EQ(texts.size(), 1U) << "one option string";
    WORDS options{"h"};
    for (const char c : texts.empty() ? "" : *texts.begin())
        if (c != ':') options.insert(std::string(1, c));
    return options;
}

// Blanks count once, as a formatter sees them, and escapes as what they show.
std::string PLAIN(std::string sText)
{
    sText = std::regex_replace(sText, std::regex("\\\\&"), "");
    sText = std::regex_replace(sText, std::regex("\\\\\\(aa"), "´");
    return std::regex_replace(sText, std::regex("\\s+"), " ");
}

TEST(DOCUMENTS, options_are_the_same_in_code_man_page_readme_and_completion)
{
    const WORDS options = OPTIONS();
    ASSERT_GE(options.size(), 10U);
    EXPECT_EQ(FOUND(TEXT("man/vk_config_client.8"), "^\\.It Fl ([A-Za-z])(?: |$)"), options);

    const WORDS lists =
        FOUND(TEXT("packaging/vk_config_client.bash-completion"), "-W '(-U [^']*)'");
    ASSERT_EQ(lists.size(), 1U);
    EXPECT_EQ(FOUND(*lists.begin(), "-([A-Za-z])"), options);

    WORDS readme;
    for (const std::string& sCell : FOUND(TEXT("README.md"), "^\\| (-[^|]*) \\|"))
        readme.merge(FOUND(sCell, "-([A-Za-z])\\b"));
    EXPECT_EQ(readme, options);
    // The usage text names some of them, and none that is not there.
    const WORDS usage = FOUND(TEXT("src/kernel/usage.cpp"), "^ *\" +\\[?-([A-Za-z])[ \\]]");
    EXPECT_GE(usage.size(), 10U);
    for (const std::string& sOption : usage) EXPECT_TRUE(options.contains(sOption)) << sOption;
}

TEST(DOCUMENTS, man_page_explains_every_message_by_its_text)
{
    // English stands first in a row of the catalogue.
    const auto texts = [](const char* cpFile, const char* cpRow) {
        const std::string                  sText = TEXT(cpFile);
        const std::regex                   row(cpRow);
        std::map<std::string, std::string> found;
        for (std::sregex_iterator it(sText.begin(), sText.end(), row), end; it != end; ++it)
            found[(*it)[1]] = PLAIN((*it)[2]);
        return found;
    };
    const auto code =
        texts("src/kernel/messages.cpp", "\\{MSG_\\w+,\\s*\"([EIW]\\d{3})-HOSTS   ([^\"]*)\"");
    EXPECT_EQ(code.size(), 35U);
    EXPECT_EQ(texts("man/vk_config_client.8",
                    "\\n\\.It Sy ([EIW]\\d{3})\\n\\\\\\(lq([^]*?)\\\\\\(rq\\n\\.br\\n[A-Z]"),
              code);
}

TEST(DOCUMENTS, configuration_keys_are_the_same_in_code_man_page_and_default_file)
{
    const std::string sIni = TEXT("packaging/vk.ini");
    WORDS             keys = FOUND(sIni, "^;([a-z_0-9]+) =");
    ASSERT_GE(keys.size(), 15U);

    WORDS man;
    for (const std::string& sLine :
         FOUND(TEXT("man/vk_config_client.8"), "^\\.It Cm (\\[[^\\n]*)$"))
        for (const std::string& sWord : FOUND(sLine.substr(sLine.find(']')), "([a-z_0-9]+)"))
            man.insert(sWord);
    EXPECT_EQ(man, keys);

    WORDS rows;
    for (const CONFIG_KEY& key : asctCONFIG_KEY) rows.emplace(key.svKey);
    EXPECT_EQ(rows, keys);
}

TEST(DOCUMENTS, options_of_the_fleet_view_are_the_same_in_usage_man_page_and_completion)
{
    const std::string sCode = TEXT("src/vk_client_status/options.cpp");
    const std::string sMan = TEXT("man/vk_client_status.8");
    WORDS             options = FOUND(sCode, "^    \\{\"([a-z-]+)\",");
    options.insert("help");
    EXPECT_EQ(FOUND(sCode, "^  --([a-z-]+)"), options);  // the last line has --version as well
    options.insert("version");
    ASSERT_GE(options.size(), 26U);
    WORDS man = FOUND(sMan, "^\\.It [^\\n]*?Fl -([a-z-]+)");
    man.merge(FOUND(sMan, "^\\.It [^\\n]*, Fl -([a-z-]+)"));
    EXPECT_EQ(man, options);
    for (const std::string& s : FOUND(sMan, "Fl -([a-z-]+)")) EXPECT_TRUE(options.contains(s)) << s;
    EXPECT_EQ(FOUND(TEXT("packaging/vk_client_status.bash-completion"), "[ '\n]--([a-z-]+)"),
              options);
}

TEST(DOCUMENTS, completion_offers_names_as_they_are_and_carries_nothing_of_them_out)
{
    constexpr const char* cpScript = R"sh(bash -c '
        vk_client_status() { printf "%s\n" "\$(echo ran)" "a b"; }
        for line in "vk_setup set_mode" vk_config_client "vk_config_client -c" \
            "vk_config_client -o" vk_client_status "vk_client_status --os"; do
            COMP_WORDS=($line "") COMP_CWORD=$(set -- $line; echo $#)
            . ./$COMP_WORDS.bash-completion; _$COMP_WORDS; printf "%s|" "${COMPREPLY[@]}"
        done')sh";
    const std::string     sBoth = "$(echo ran)|a b|";
    EXPECT_EQ(sctSHELL("cd " + std::string(VK_SOURCE_DIR) + "/packaging && " + cpScript).sOut,
              sBoth + sBoth + "ALL_CLIENTS|" + sBoth + sBoth + sBoth + sBoth);
}

}  // namespace
