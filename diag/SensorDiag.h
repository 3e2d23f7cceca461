// Diagnostics of the sensor controller: a verbosity level read from the debug
// sign file before every decision, levelled prints, and checked expressions
// that report (and abort only when the sign file asks for it).
//
// Every source file defines SNS_SOURCE_UNIT, the unit name printed in the
// "file:" field, before including this header.
#pragma once

#include <atomic>

#include "diag/SensorDefs.h"

// Current verbosity, 1 until the sign file says otherwise. Every thread reads
// it, so it is an atomic of the same size as the plain int.
extern SENSOR_API std::atomic<int> g_nDebugLevel;
// Whether a failed SNS_ASSERT aborts the process after its report.
extern SENSOR_API std::atomic<bool> g_bEnAssert;

static_assert(sizeof(std::atomic<int>) == 4 && sizeof(std::atomic<bool>) == 1,
              "diagnostic globals keep their plain sizes");

// Re-reads "/mnt/mtd/sign/Debug.sign": line 1 the level, line 2 the abort switch.
SENSOR_API void updateDebugLevel();

// Tags and the level a message needs to exceed.
#define SNS_TAG_DBG "[sensor dbg]"
#define SNS_TAG_INFO "[sensor info]"
#define SNS_TAG_WARN "[sensor warn]"
#define SNS_TAG_ERR "[sensor err]"
#define SNS_LEVEL_DBG 5
#define SNS_LEVEL_INFO 6
#define SNS_LEVEL_WARN 3
#define SNS_LEVEL_ERR 5

SENSOR_API void snsPrint(const char* unit, const char* func, int line, const char* tag,
                         int threshold, int colour, bool log, const char* fmt, ...)
    __attribute__((format(printf, 8, 9)));
// A message whose text is costly to build: snsDecide makes the site's one
// decision (the sign file is consulted) and tells whether it prints;
// snsPrintDecided then prints without deciding again. Together they print
// exactly what snsPrint prints.
bool snsDecide(int threshold);
void snsPrintDecided(const char* unit, const char* func, int line, const char* tag, int colour,
                     bool log, const char* fmt, ...) __attribute__((format(printf, 7, 8)));
SENSOR_API void snsPrintBare(int threshold, int colour, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
SENSOR_API void snsAssertFail(const char* unit, const char* func, int line, const char* pretty,
                              const char* expr, const char* fmt, ...)
    __attribute__((format(printf, 6, 7)));

// The levelled print: tag, threshold, colour, whether to copy to the error log.
#define SNS_PRINT(tag, threshold, colour, log, fmt, ...)                                           \
    snsPrint(SNS_SOURCE_UNIT, __func__, __LINE__, tag, threshold, colour, log, fmt, ##__VA_ARGS__)

// The print half of a site decided with snsDecide.
#define SNS_PRINT_DECIDED(tag, colour, log, fmt, ...)                                              \
    snsPrintDecided(SNS_SOURCE_UNIT, __func__, __LINE__, tag, colour, log, fmt, ##__VA_ARGS__)

#define SNS_DBG(fmt, ...) SNS_PRINT(SNS_TAG_DBG, SNS_LEVEL_DBG, 0, false, fmt, ##__VA_ARGS__)
#define SNS_DBG_C(colour, fmt, ...)                                                                \
    SNS_PRINT(SNS_TAG_DBG, SNS_LEVEL_DBG, colour, false, fmt, ##__VA_ARGS__)
#define SNS_INFO(fmt, ...) SNS_PRINT(SNS_TAG_INFO, SNS_LEVEL_INFO, 0, false, fmt, ##__VA_ARGS__)
#define SNS_INFO_C(colour, fmt, ...)                                                               \
    SNS_PRINT(SNS_TAG_INFO, SNS_LEVEL_INFO, colour, false, fmt, ##__VA_ARGS__)
#define SNS_WARN(fmt, ...) SNS_PRINT(SNS_TAG_WARN, SNS_LEVEL_WARN, 0, true, fmt, ##__VA_ARGS__)
#define SNS_ERR(fmt, ...) SNS_PRINT(SNS_TAG_ERR, SNS_LEVEL_ERR, 0, false, fmt, ##__VA_ARGS__)

// A coloured message without the tag header, at debug level.
#define SNS_BARE(colour, fmt, ...) snsPrintBare(SNS_LEVEL_DBG, colour, fmt, ##__VA_ARGS__)

// Evaluates expr into the local bRet; when false, reports the expression's
// text and the detail, and goes on with the next statement unless the sign
// file enabled aborting.
#define SNS_ASSERT(expr, fmt, ...) SNS_ASSERT_TEXT((expr), #expr, fmt, ##__VA_ARGS__)

// The same with the report's expression text given separately, for the few
// checks whose reported text is not literally their code.
#define SNS_ASSERT_TEXT(expr, text, fmt, ...)                                                      \
    do {                                                                                           \
        bool bRet = (expr);                                                                        \
        if (!bRet)                                                                                 \
            snsAssertFail(SNS_SOURCE_UNIT, __func__, __LINE__, __PRETTY_FUNCTION__, text, fmt,     \
                          ##__VA_ARGS__);                                                          \
    } while (0)
