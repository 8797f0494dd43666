/* What the C++ library asks of the vendor's C library and the headers used here do not declare. Compile
   checks only. */
#pragma once

#include <locale.h>
#include <stdio.h>
#include <stdlib.h>

typedef unsigned int __uint32_t;

enum {
    _CTYPE_A = 1 << 8,
    _CTYPE_C = 1 << 9,
    _CTYPE_D = 1 << 10,
    _CTYPE_L = 1 << 12,
    _CTYPE_P = 1 << 13,
    _CTYPE_S = 1 << 14,
    _CTYPE_U = 1 << 15,
    _CTYPE_X = 1 << 16,
    _CTYPE_B = 1 << 17,
    _CTYPE_R = 1 << 18
};

#ifdef __cplusplus
extern "C" {
#endif
long long strtoll_l(const char*, char**, int, locale_t);
unsigned long long strtoull_l(const char*, char**, int, locale_t);
int sscanf_l(const char*, locale_t, const char*, ...);
int snprintf_l(char*, size_t, locale_t, const char*, ...);
int asprintf_l(char**, locale_t, const char*, ...);
#ifdef __cplusplus
}
#endif
