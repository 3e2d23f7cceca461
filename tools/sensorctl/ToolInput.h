// The grammar of sensorctl's own inputs: the numbers, times, fault settings
// and lists that the command line, the shell and the web console take. One
// rule for each, so that "7:5" or "+3" means the same (nothing) everywhere.
// The pair and id texts of set and get are the library's to read; the console
// checks their form here only so that it can answer 400 with a position.
//
// Every reader takes the whole text, without blanks around it unless it says
// otherwise, and on refusal says where the text stops being what it expects:
// the 0-based offset of the first byte that does not fit, or the text's
// length when the text ends too soon.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace sensorctl {

struct InputError {
    size_t nAt = 0;      // the offending byte, counted from 0
    std::string strWhat; // what was expected there, e.g. "a digit"
};

// A decimal integer: an optional "-", then digits, nothing else ("+1", " 1",
// "1x", "0x1" are not integers). Out of [lo, hi] is refused at its first byte.
bool readInteger(const std::string& text, long lo, long hi, long& value, InputError& error);

// A decimal number: an optional "-", digits, and optionally "." and more
// digits ("0.001", "2", "2.5"; not ".5", "1e3", "inf" or "nan"). Out of
// [lo, hi] is refused at its first byte.
bool readDecimal(const std::string& text, double lo, double hi, double& value, InputError& error);

// A time of day "HH:MM": two digits, a colon, two digits, 00:00 to 23:59.
bool readClock(const std::string& text, int& hour, int& minute, InputError& error);

// The simulated ISP's fault setting "CMD RET" or "CMD off": a command number
// from 0, one or more blanks (spaces or tabs), and the result every call of
// the command answers (an int) or "off" to end it.
struct FaultSetting {
    long nCmd = 0;
    long nRet = 0;
    bool bOff = false;
};
bool readFaultSetting(const std::string& text, FaultSetting& setting, InputError& error);

// A pair list "(k,v)(k,v)...", at least one pair, each key and value an
// integer of the form above within 32 bits, nothing between the pairs. The
// keys in order.
bool readPairList(const std::string& text, std::vector<long>& keys, InputError& error);

// An id list "(k,k,...)", at least one id, each an integer within 32 bits.
bool readIdList(const std::string& text, std::vector<long>& ids, InputError& error);

// A position in the console's trace: an entry number from 0.
bool readTraceCursor(const std::string& text, long& since, InputError& error);

// One of the words, exactly: its index.
bool readChoice(const std::string& text, const std::vector<std::string>& words, size_t& index,
                InputError& error);

// Nothing but blanks (spaces, tabs, line ends): the only body an action
// without arguments takes.
bool readNothing(const std::string& text, InputError& error);

// A text without its surrounding blanks (spaces, tabs, line ends), and the
// offset of its first byte in the original, so that a position found in the
// inner text can be given in the original.
struct InnerText {
    std::string strText;
    size_t nOffset = 0;
};
InnerText withoutBlanks(const std::string& text);

} // namespace sensorctl
