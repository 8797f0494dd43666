/* Included first: the integer types of the vendor's systems, which the headers used here would declare as
   another type of the same size. What is ambiguous or badly formatted there is so here. Compile checks only.
 */
#define __DEFINED_int64_t
typedef long long int64_t;
#define __DEFINED_uint64_t
typedef unsigned long long uint64_t;
