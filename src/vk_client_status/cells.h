/* Columns of text on a terminal. */
#pragma once

#include <string>
#include <string_view>

/* Columns that a text takes: wide characters two, combining ones none. */
size_t uCOLUMNS(std::string_view svText);

/* svText in at most uMax columns; one that is cut ends with an ellipsis. */
std::string sFITTED(std::string_view svText, size_t uMax);

/* svText padded to uWidth columns. */
std::string sPADDED(std::string_view svText, size_t uWidth);

/* Colours, or nothing where they are not wanted. */
enum COLOR { COLOR_NONE, COLOR_RED, COLOR_YELLOW, COLOR_GREEN, COLOR_CYAN, COLOR_DIM, COLOR_BOLD };
std::string sCOLORED(std::string_view svText, COLOR eColor, bool bColor);

/* "3 clients", "1 client". */
std::string sCOUNTED(long lCount, std::string_view svOne);
