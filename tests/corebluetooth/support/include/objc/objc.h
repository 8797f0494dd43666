// Stand-in declarations: what the back end's sources use of the language support.
#pragma once

typedef bool BOOL;
#define YES __objc_yes
#define NO __objc_no
#define nil nullptr
