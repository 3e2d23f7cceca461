#include "controller/ControllerPriv.h"

#include "controller/KeyCmdTable.h"
#include "keyval/SensorKeys.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <iterator>

namespace sensor_detail {

// A row with a handler; its name field is the handler's expression as text.
#define KEY_CMD_ROW(name, key, cmd, handler)                                                       \
    KeyCmdRow{key, cmd, &ISensorController::handler, #name, "&ISensorController::" #handler},
// A key the controller keeps for itself: intercepted before the lookup, never sent.
#define KEY_CMD_NONE(name, key) KeyCmdRow{key, 0, nullptr, #name, "NULL"},

const KeyCmdRow kKeyCmdTable[] = {SENSOR_KEY_LIST(KEY_CMD_ROW, KEY_CMD_NONE)};

#undef KEY_CMD_ROW
#undef KEY_CMD_NONE

static_assert(std::size(kKeyCmdTable) == ISensorController::KEY_CMD_ROWS,
              "the table fills every row the controller counts");

namespace {

// Copies a name into a fixed field, always terminated, cut to fit.
template <size_t N> void copyName(char (&dst)[N], const char* src) {
    const size_t nLen = ::strnlen(src, N - 1);
    std::memcpy(dst, src, nLen);
    dst[nLen] = '\0';
}
} // namespace
} // namespace sensor_detail

using sensor_detail::kKeyCmdTable;

const char* sensorKeyName(u32 key) {
    for (const auto& row : kKeyCmdTable)
        if (row.key == key)
            return row.szKeyName;
    return nullptr;
}

u32 sensorKeyCount() {
    return ISensorController::KEY_CMD_ROWS;
}

bool sensorKeyRow(u32 row, u32& key, u32& cmd, const char*& keyName, const char*& handlerName) {
    if (row >= ISensorController::KEY_CMD_ROWS)
        return false;
    key = kKeyCmdTable[row].key;
    cmd = kKeyCmdTable[row].cmd;
    keyName = kKeyCmdTable[row].szKeyName;
    handlerName = kKeyCmdTable[row].szHandlerName;
    return true;
}

// Room for 150 rows, all zero, then the 138 rows; the row count is set only
// once the rows are in place. The zero rows beyond are never searched.
void ISensorController::buildKeyCmdMap() {
    std::free(m_pKeyCmdMap);
    m_pKeyCmdMap = static_cast<keycmd*>(std::malloc(KEY_CMD_CAPACITY * sizeof(keycmd)));
    if (m_pKeyCmdMap == nullptr) {
        m_nKeyCmdNum = 0;
        SNS_ASSERT(m_pKeyCmdMap != nullptr, "no room for %d key-command rows\n", KEY_CMD_CAPACITY);
        return;
    }
    std::memset(static_cast<void*>(m_pKeyCmdMap), 0, KEY_CMD_CAPACITY * sizeof(keycmd));
    for (u32 i = 0; i < KEY_CMD_ROWS; ++i) {
        keycmd& dst = m_pKeyCmdMap[i];
        const sensor_detail::KeyCmdRow& src = kKeyCmdTable[i];
        dst.key = src.key;
        dst.cmd = src.cmd;
        dst.handler = src.handler;
        sensor_detail::copyName(dst.szKeyName, src.szKeyName);
        sensor_detail::copyName(dst.szHandlerName, src.szHandlerName);
    }
    m_nKeyCmdNum = KEY_CMD_ROWS;
}

// The first row with the key among the rows in use, copied into out; -1 and
// out untouched when there is none.
int ISensorController::findFromKeyCmdMap(const keycmd* map, u32 key, keycmd& out) {
    if (map != nullptr) {
        for (u32 i = 0; i < m_nKeyCmdNum; ++i) {
            if (map[i].key != key)
                continue;
            out.key = map[i].key;
            out.cmd = map[i].cmd;
            out.handler = map[i].handler;
            sensor_detail::copyName(out.szKeyName, map[i].szKeyName);
            sensor_detail::copyName(out.szHandlerName, map[i].szHandlerName);
            return static_cast<int>(i);
        }
    }
    SNS_BARE(0, "cand not find key-cmd while key=%d\n", key);
    return -1;
}
