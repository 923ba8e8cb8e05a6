#pragma once

// The built-in rows of the two LDID tables, in the order they are stored.
// They stand in for "dbasecpg.txt" and "cpgdbase.txt" when those files cannot
// be opened, and the generator writes the files from them. Both lists are kept
// exactly as tables of the field have always carried them, odd rows included:
// a few keys occur twice (the later row wins), and Japanese with code page
// 950 names LDID 19, whose code page is 932.

#include <cstdint>

namespace quillet {

struct LdidCodePageRow {
    unsigned char ldid;
    uint32_t codePage;
};

// LDID byte to code page.
inline constexpr LdidCodePageRow kBuiltinLdidRows[] = {
    {8, 865},   {9, 437},   {10, 850},  {11, 437},  {13, 437},   {14, 850},   {15, 437},
    {16, 850},  {17, 437},  {18, 850},  {19, 932},  {20, 850},   {21, 437},   {22, 850},
    {23, 865},  {24, 437},  {25, 437},  {26, 850},  {27, 437},   {28, 863},   {29, 850},
    {31, 852},  {32, 867},  {34, 852},  {35, 852},  {36, 860},   {37, 850},   {38, 866},
    {55, 850},  {64, 852},  {77, 936},  {78, 949},  {79, 950},   {80, 874},   {88, 1252},
    {89, 1252}, {134, 737}, {135, 852}, {136, 857},
};

struct LocaleKeyLdidRow {
    uint32_t key;  // language id * 1000000 + code page
    unsigned char ldid;
};

// Locale key to LDID byte.
inline constexpr LocaleKeyLdidRow kBuiltinLocaleKeyRows[] = {
    {15000865, 8},   {6000865, 8},    {19000437, 9},   {19000850, 10},  {11000437, 11},
    {12000437, 13},  {12000850, 14},  {7000437, 15},   {7000850, 16},   {16000437, 17},
    {16000850, 18},  {17000950, 19},  {10000850, 20},  {29000437, 21},  {29000850, 22},
    {20000865, 23},  {10000437, 24},  {9000850, 26},   {9000437, 27},   {12000863, 28},
    {12000850, 29},  {5000852, 31},   {27000852, 31},  {5000867, 32},   {14000852, 34},
    {21000852, 35},  {22000860, 36},  {22000850, 37},  {25000866, 38},  {9000850, 55},
    {24000852, 64},  {4000936, 77},   {18000949, 78},  {4000950, 79},   {874, 80},
    {10001252, 89},  {8000737, 134},  {36000852, 135}, {31000857, 136},
};

// The names of the table files in the code page folder.
inline constexpr const wchar_t* kLdidFileName = L"dbasecpg.txt";
inline constexpr const wchar_t* kLocaleKeyFileName = L"cpgdbase.txt";
inline constexpr const wchar_t* kAlarabiIndexFileName = L"alarabi7index.txt";
inline constexpr const wchar_t* kAsmo449IndexFileName = L"arabic7index.txt";

}  // namespace quillet
