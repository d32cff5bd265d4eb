/* Finds the known word that a mistyped one may mean. */
#pragma once

#include <string_view>
#include <vector>

/* Letters to be put in, left out, replaced or exchanged with their neighbour to make
   one word from the other; the case of ASCII letters does not matter. */
size_t uDISTANCE(std::string_view svOne, std::string_view svOther);

/* The word of known that svWord comes nearest to, "" when none is near: at most two
   letters away, and less than half of the word. Of two that are as near, the one that
   begins with more of its letters, their case included. */
std::string_view svNEAREST(std::string_view svWord, const std::vector<std::string_view>& known);
