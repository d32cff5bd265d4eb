/* Doubly linked list. An element is a copy of the bytes handed in and belongs
   to the list; it is handed out as a pointer to its data, which the list
   operations take back. A list and its elements live until the process ends. */
#pragma once

#include <cstddef>

struct s_list {
    s_list* forward;
    s_list* backward;
    size_t  size;  // in the head: number of elements; in an element: its bytes
};
using l_list = s_list;

struct t_linkLL {
    union {
        l_list         ll;
        void*          v;
        char           c;
        unsigned char  uc;
        short          s;
        unsigned short us;
        int            i;
        unsigned int   ui;
        long           l;
        unsigned long  ul;
        float          f;
        double         d;
    } u;
};

struct s_LL {
    t_linkLL links;
};
using t_LL = s_LL*;

/* A new empty list. */
t_LL ConsLL();

/* Appends an element of uSize bytes copied from pData; a terminator stands behind them.
   Returns its data; null, and nothing is appended, where there is no list or no data. */
void* InsLastLLf(t_LL pList, size_t uSize, const void* pData);

/* Number of elements; 0 for a null list. */
size_t SizeLL(t_LL pList);

/* First element, or an end value that IsElmLL rejects when there is none. */
void* FirstElmLL(t_LL pList);

/* Element after pElement, or an end value that IsElmLL rejects. */
void* NextElmLL(void* pElement);

/* 1 for an element, 0 for an end value or null. */
int IsElmLL(const void* pElement);

/* Last element, or null when the list is empty. */
void* LastElmLL(t_LL pList);

/* Searches the elements' texts, first to last, for a search pattern
   (common.h, iPATTERN_HIT).
   cpPattern  in: the pattern; out, on a hit: the whole line, cut at a
              character boundary to uSize-1 bytes. Unchanged without a hit.
   Result     1 hit, 0 none. */
int i_LL_search(t_LL pList, char* cpPattern, size_t uSize);
