/* Languages of the user-visible messages. */
#pragma once

enum LANGUAGES {
    LANG_EN = 0,  // English
    LANG_ES = 1,
    LANG_DE = 2,  // German
    LANG_BY = 3,  // Bavarian
    LANG_FR = 4,  // French
    LANG_HR = 5,
    LANG_PT = 6,
};

/* The language of this run. Set by v_set_log_main from "language" in vk.ini,
   English until then. The tool only reads it. */
extern LANGUAGES eLang;
