#define SNS_SOURCE_UNIT "SensorKeyVal.cpp"
#include "keyval/SensorKeyVal.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "diag/SensorDiag.h"
#include "host/ia_ioctrl_v2.h"
#include "diag/SensorNumber.h"

namespace {

// Walks the groups of a pair list the way the host's texts have always been
// read: each "(" is paired with the first ")" at or after the current
// position, not after the "(" itself. visit(piece) gets each group's text.
template <typename Visit> void forEachGroup(const std::string& text, Visit visit) {
    std::string::size_type nPos = 0;
    while (nPos < text.size()) {
        const std::string::size_type nOpen = text.find('(', nPos);
        if (nOpen == std::string::npos || nOpen == text.size() - 1)
            break;
        const std::string::size_type nClose = text.find(')', nPos);
        if (nClose == std::string::npos)
            break;
        nPos = nClose + 1;
        // A ")" before the "(" leaves the group open to the end of the text.
        const std::string::size_type nLen = nClose > nOpen ? nClose - nOpen + 1 : std::string::npos;
        visit(text.substr(nOpen, nLen));
    }
}

} // namespace

void keyval_str2st(const std::string& text, KeyVal* out, u32* count) {
    *count = 0;
    // Whatever a group fails to give keeps the previous group's number.
    long long nKey = 0; // wide, then bounded alike on the camera and a PC
    long long nValue = 0;
    forEachGroup(text, [&](const std::string& strGroup) {
        (void)std::sscanf(strGroup.c_str(), "(%lld,%lld)", &nKey, &nValue);
        out[*count].key = static_cast<u32>(sensorInt32(nKey));
        out[*count].value = static_cast<u32>(sensorInt32(nValue));
        ++*count;
    });
}

namespace {

// Writes n as "%d" writes it, backwards from p_pEnd; the first character.
char* decimalBefore(char* p_pEnd, int n) {
    // The magnitude as unsigned, so that INT_MIN has one too.
    unsigned int u = n < 0 ? 0u - static_cast<unsigned int>(n) : static_cast<unsigned int>(n);
    char* p = p_pEnd;
    do {
        *--p = static_cast<char>('0' + u % 10);
        u /= 10;
    } while (u != 0);
    if (n < 0)
        *--p = '-';
    return p;
}

} // namespace

// Each pair as "(%d,%d)" formats it, without the formatter's cost per pair:
// a long list is the whole current scheme.
void keyval_st2str(std::string& text, KeyVal* in, u32 count) {
    char szPair[32];
    char* const pEnd = szPair + sizeof(szPair);
    for (u32 i = 0; i < count; ++i) {
        char* p = pEnd;
        *--p = ')';
        p = decimalBefore(p, static_cast<int>(in[i].value));
        *--p = ',';
        p = decimalBefore(p, static_cast<int>(in[i].key));
        *--p = '(';
        text.append(p, static_cast<size_t>(pEnd - p));
    }
}

u32 keyval_str_count(const std::string& text) {
    u32 nCount = 0;
    forEachGroup(text, [&](const std::string&) { ++nCount; });
    return nCount;
}

int keyval_correct(int p_nChannel_id, KeyVal* p_pKeyval, u32 p_nKeyValNum) {
    SNS_ASSERT(NULL != p_pKeyval, "p_nKeyValNum(%u)\n", p_nKeyValNum);

    ia_dynamic_params_cmds_st dnaCmdList{};
    SNS_ASSERT_TEXT(SNS_SUCCESS == ia_ioctrl_v2(p_nChannel_id, IA_CMD_DYNAMIC_PARAMS_CMDS_GET,
                                                IA_CMD_OPT_GET, &dnaCmdList),
                    "SNS_SUCCESS == ia_ioctrl_v2(p_nChannel_id, IA_CMD_DYNAMIC_PARAMS_CMDS_GET, "
                    "IA_CMD_OPT_GET, (void*)(&dnaCmdList))",
                    "");

    // The list holds 16 commands whatever count the ISP claims.
    SNS_ASSERT(dnaCmdList.cmd_cnt <= IA_DYNAMIC_CMDS_MAX, "dnaCmdList.cmd_cnt(%u)\n",
               dnaCmdList.cmd_cnt);
    const u32 nCmds = std::min<u32>(dnaCmdList.cmd_cnt, IA_DYNAMIC_CMDS_MAX);

    for (u32 i = 0; i < nCmds; ++i) {
        const u32 nCmd = dnaCmdList.cmd_list[i];
        int index = -1;
        for (u32 j = 0; p_pKeyval != NULL && j < p_nKeyValNum; ++j) {
            if (p_pKeyval[j].key == nCmd) {
                index = static_cast<int>(j);
                break;
            }
        }
        // A scheme without this command has nothing to correct.
        SNS_ASSERT(-1 != index, "cmd(%u)\n", nCmd);
        if (-1 == index)
            continue;

        SNS_DBG("before correct: (%d,%d)\n", static_cast<int>(p_pKeyval[index].key),
                static_cast<int>(p_pKeyval[index].value));
        SNS_ASSERT_TEXT(SNS_SUCCESS ==
                            ia_ioctrl_v2(p_nChannel_id, static_cast<int>(p_pKeyval[index].key),
                                         IA_CMD_OPT_CORRECT_PARAM, &p_pKeyval[index].value),
                        "SNS_SUCCESS == ia_ioctrl_v2(p_nChannel_id, "
                        "(ia_cmd_e)p_pKeyval[index].key, IA_CMD_OPT_CORRECT_PARAM, "
                        "&p_pKeyval[index].value)",
                        "");
        SNS_DBG("after correct: (%d,%d)\n", static_cast<int>(p_pKeyval[index].key),
                static_cast<int>(p_pKeyval[index].value));
    }
    return SNS_SUCCESS;
}
