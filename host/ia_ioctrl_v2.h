// The image signal processor's control call and its records, as the camera's
// host process supplies them. The library calls ia_ioctrl_v2 and never defines it.
#pragma once

#include <cstdint>

// Options of ia_ioctrl_v2 (the fourth argument's meaning depends on them).
enum ia_cmd_opt_e {
    IA_CMD_OPT_SET = 0,             // apply the value at data
    IA_CMD_OPT_GET = 1,             // read the value into data
    IA_CMD_OPT_GET_PARAM_RNAGE = 2, // read the command's range record
    IA_CMD_OPT_CORRECT_PARAM = 3,   // rewrite the value at data to one the range accepts
    IA_CMD_OPT_GET_EXEC_STATUS = 4, // read the command's execution status
};

// Command numbers that the controller names itself. Every key of the
// key-command table is also a command number; only those used by name are here.
enum ia_cmd_e {
    IA_CMD_DN_THR_D2N = 145,    // record dn_thr_st (three u32)
    IA_CMD_DN_THR_N2D = 146,    // record dn_thr_st
    IA_CMD_DN_TIME_FIRST = 149, // 149..152 take record dn_time_st (four u32)
    IA_CMD_DN_TIME_LAST = 152,
    IA_CMD_DN_STATE = 153,       // day/night state, read only; non-zero is night
    IA_CMD_DN_SENSITIVITY = 154, // record dn_thr_st
    IA_CMD_PTZ_RUN_STATE = 1632,
    IA_CMD_AF_STATISTIC = 1648,
    IA_CMD_UI_MIRROR = 2384,
    IA_CMD_VERSION = 2496,      // 50-byte version text
    IA_CMD_SENSOR_CHECK = 2816, // four i32: three numbers and the result
    IA_CMD_DYNAMIC_PARAMS_CMDS_GET = 4112,
};

enum { IA_DYNAMIC_CMDS_MAX = 16, IA_DYNAMIC_ITEMS_MAX = 64, IA_VERSION_TEXT_LEN = 50 };

// The list of commands whose range the ISP decides at run time (command 4112, get).
struct ia_dynamic_params_cmds_st {
    uint32_t cmd_cnt;
    uint32_t cmd_list[IA_DYNAMIC_CMDS_MAX];
};

// One command's range (any listed command, option IA_CMD_OPT_GET_PARAM_RNAGE).
struct ia_dynamic_params_attr_st {
    uint32_t type;          // 0: a list of accepted values in item; otherwise min/max
    uint32_t default_value; // the ISP's default for the command
    uint32_t min_value;     // bounds of a non-list range
    uint32_t max_value;
    uint32_t items_cnt; // valid entries of item
    uint32_t item[IA_DYNAMIC_ITEMS_MAX];
};

// The day/night thresholds (commands 145, 146, 154), taken as one record.
struct dn_thr_st {
    uint32_t d2n_thr;        // day-to-night threshold
    uint32_t n2d_thr;        // night-to-day threshold
    uint32_t dn_sensitivity; // switching sensitivity
};

// The day/night switching times (commands 149 to 152), taken as one record.
struct dn_time_st {
    uint32_t d2n_hour;
    uint32_t d2n_min;
    uint32_t n2d_hour;
    uint32_t n2d_min;
};

static_assert(sizeof(ia_dynamic_params_cmds_st) == 68, "ISP command list layout");
static_assert(sizeof(ia_dynamic_params_attr_st) == 276, "ISP range record layout");
static_assert(sizeof(dn_thr_st) == 12 && sizeof(dn_time_st) == 16, "ISP day/night record layouts");

extern "C" int ia_ioctrl_v2(int channel, int command, int option, void* data);
