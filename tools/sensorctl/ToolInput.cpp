#include "ToolInput.h"

#include <algorithm>
#include <climits>
#include <cstdio>
#include <cstdlib>

namespace sensorctl {

namespace {

const char* const kBlanks = " \t\r\n";

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool refuse(InputError& error, size_t nAt, const std::string& strWhat) {
    error.nAt = nAt;
    error.strWhat = strWhat;
    return false;
}

// The bytes from pos that may belong to an integer: "-" and digits. The
// integer reader then says whether they are one.
size_t integerEnd(const std::string& text, size_t pos) {
    while (pos < text.size() && (text[pos] == '-' || isDigit(text[pos])))
        ++pos;
    return pos;
}

// An integer within 32 bits at pos, followed by the byte stop; pos is left
// on that byte.
bool readIntegerAt(const std::string& text, size_t& pos, char stop, long& value,
                   InputError& error) {
    const size_t nEnd = integerEnd(text, pos);
    if (!readInteger(text.substr(pos, nEnd - pos), INT_MIN, INT_MAX, value, error)) {
        error.nAt += pos;
        return false;
    }
    if (nEnd >= text.size() || text[nEnd] != stop)
        return refuse(error, nEnd, std::string("'") + stop + "'");
    pos = nEnd;
    return true;
}

// The magnitude of a non-positive bound, LONG_MIN included.
unsigned long long magnitudeOf(long n) {
    return static_cast<unsigned long long>(-(n + 1)) + 1;
}

std::string decimalText(double d) {
    char sz[32];
    std::snprintf(sz, sizeof(sz), "%g", d);
    return sz;
}

std::string rangeText(long lo, long hi) {
    return "a number from " + std::to_string(lo) + " to " + std::to_string(hi);
}

} // namespace

bool readInteger(const std::string& text, long lo, long hi, long& value, InputError& error) {
    size_t i = !text.empty() && text[0] == '-' ? 1 : 0;
    const bool bNegative = i == 1;
    if (i == text.size() || !isDigit(text[i]))
        return refuse(error, i, "a digit");
    // Digits beyond what any bound needs only have to be digits.
    unsigned long long nMagnitude = 0;
    bool bHuge = false;
    for (; i < text.size(); ++i) {
        if (!isDigit(text[i]))
            return refuse(error, i, "a digit or the end");
        const unsigned nDigit = static_cast<unsigned>(text[i] - '0');
        if (nMagnitude > (ULLONG_MAX - nDigit) / 10)
            bHuge = true;
        else
            nMagnitude = nMagnitude * 10 + nDigit;
    }
    // Compared as magnitudes, so that no bound of a long overflows.
    bool bInRange = false;
    if (!bHuge && !bNegative)
        bInRange = hi >= 0 && nMagnitude <= static_cast<unsigned long long>(hi) &&
                   (lo <= 0 || nMagnitude >= static_cast<unsigned long long>(lo));
    else if (!bHuge)
        bInRange =
            lo <= 0 && nMagnitude <= magnitudeOf(lo) && (hi >= 0 || nMagnitude >= magnitudeOf(hi));
    if (!bInRange)
        return refuse(error, 0, rangeText(lo, hi));
    value = bNegative ? static_cast<long>(0 - nMagnitude) : static_cast<long>(nMagnitude);
    return true;
}

bool readDecimal(const std::string& text, double lo, double hi, double& value, InputError& error) {
    size_t i = !text.empty() && text[0] == '-' ? 1 : 0;
    if (i == text.size() || !isDigit(text[i]))
        return refuse(error, i, "a digit");
    while (i < text.size() && isDigit(text[i]))
        ++i;
    if (i < text.size() && text[i] == '.') {
        ++i;
        if (i == text.size() || !isDigit(text[i]))
            return refuse(error, i, "a digit");
        while (i < text.size() && isDigit(text[i]))
            ++i;
    }
    if (i != text.size())
        return refuse(error, i, "a digit or the end");
    // The form is plain decimal: strtod reads it exactly as written.
    const double dValue = std::strtod(text.c_str(), nullptr);
    if (!(dValue >= lo && dValue <= hi))
        return refuse(error, 0, "a number from " + decimalText(lo) + " to " + decimalText(hi));
    value = dValue;
    return true;
}

bool readClock(const std::string& text, int& hour, int& minute, InputError& error) {
    const char* const szForm = "00:00"; // '0' stands for a digit
    for (size_t i = 0; i < 5; ++i) {
        const bool bDigit = szForm[i] == '0';
        if (i >= text.size() || (bDigit ? !isDigit(text[i]) : text[i] != ':'))
            return refuse(error, i, bDigit ? "a digit of HH:MM" : "':' of HH:MM");
    }
    if (text.size() > 5)
        return refuse(error, 5, "the end of HH:MM");
    const int nHour = (text[0] - '0') * 10 + (text[1] - '0');
    const int nMinute = (text[3] - '0') * 10 + (text[4] - '0');
    if (nHour > 23)
        return refuse(error, 0, "an hour from 00 to 23");
    if (nMinute > 59)
        return refuse(error, 3, "a minute from 00 to 59");
    hour = nHour;
    minute = nMinute;
    return true;
}

bool readFaultSetting(const std::string& text, FaultSetting& setting, InputError& error) {
    const size_t nCmdEnd = std::min(text.find_first_of(" \t"), text.size());
    long nCmd = 0;
    if (!readInteger(text.substr(0, nCmdEnd), 0, INT_MAX, nCmd, error))
        return false;
    const size_t nRetStart = text.find_first_not_of(" \t", nCmdEnd);
    if (nCmdEnd == text.size() || nRetStart == std::string::npos)
        return refuse(error, text.size(), "a blank and RET or off");
    const size_t nRetEnd = std::min(text.find_first_of(" \t", nRetStart), text.size());
    const std::string strRet = text.substr(nRetStart, nRetEnd - nRetStart);
    FaultSetting read;
    read.nCmd = nCmd;
    read.bOff = strRet == "off";
    if (!read.bOff && !readInteger(strRet, INT_MIN, INT_MAX, read.nRet, error)) {
        error.nAt += nRetStart;
        error.strWhat += " (or off)";
        return false;
    }
    if (nRetEnd != text.size())
        return refuse(error, nRetEnd, "the end after RET");
    setting = read;
    return true;
}

bool readPairList(const std::string& text, std::vector<long>& keys, InputError& error) {
    std::vector<long> read;
    size_t pos = 0;
    do {
        long nKey = 0, nValue = 0;
        if (pos >= text.size() || text[pos] != '(')
            return refuse(error, pos, "'('");
        ++pos;
        if (!readIntegerAt(text, pos, ',', nKey, error))
            return false;
        ++pos;
        if (!readIntegerAt(text, pos, ')', nValue, error))
            return false;
        ++pos;
        read.push_back(nKey);
    } while (pos < text.size());
    keys = read;
    return true;
}

bool readIdList(const std::string& text, std::vector<long>& ids, InputError& error) {
    std::vector<long> read;
    if (text.empty() || text[0] != '(')
        return refuse(error, 0, "'('");
    size_t pos = 1;
    for (;;) {
        long nId = 0;
        const size_t nEnd = integerEnd(text, pos);
        if (!readInteger(text.substr(pos, nEnd - pos), INT_MIN, INT_MAX, nId, error)) {
            error.nAt += pos;
            return false;
        }
        read.push_back(nId);
        pos = nEnd;
        if (pos < text.size() && text[pos] == ')')
            break;
        if (pos >= text.size() || text[pos] != ',')
            return refuse(error, pos, "',' or ')'");
        ++pos;
    }
    if (pos + 1 != text.size())
        return refuse(error, pos + 1, "the end after ')'");
    ids = read;
    return true;
}

bool readTraceCursor(const std::string& text, long& since, InputError& error) {
    return readInteger(text, 0, LONG_MAX, since, error);
}

bool readChoice(const std::string& text, const std::vector<std::string>& words, size_t& index,
                InputError& error) {
    size_t nLongest = 0; // the longest start the text shares with a word
    for (size_t i = 0; i < words.size(); ++i) {
        if (text == words[i]) {
            index = i;
            return true;
        }
        size_t n = 0;
        while (n < text.size() && n < words[i].size() && text[n] == words[i][n])
            ++n;
        nLongest = std::max(nLongest, n);
    }
    std::string strWords;
    for (size_t i = 0; i < words.size(); ++i)
        strWords += (i == 0 ? "" : i + 1 == words.size() ? " or " : ", ") + words[i];
    return refuse(error, nLongest, strWords);
}

bool readNothing(const std::string& text, InputError& error) {
    const size_t nFirst = text.find_first_not_of(kBlanks);
    if (nFirst != std::string::npos)
        return refuse(error, nFirst, "nothing (an empty body)");
    return true;
}

InnerText withoutBlanks(const std::string& text) {
    InnerText inner;
    const size_t nBegin = text.find_first_not_of(kBlanks);
    if (nBegin == std::string::npos) {
        inner.nOffset = text.size();
        return inner;
    }
    inner.nOffset = nBegin;
    inner.strText = text.substr(nBegin, text.find_last_not_of(kBlanks) - nBegin + 1);
    return inner;
}

} // namespace sensorctl
