// The text form of parameter lists, "(34,60)(2337,1)", and the ISP's
// correction of stored values.
#pragma once

#include <string>

#include "diag/SensorDefs.h"
#include "keyval/KeyVal.h"

// Parses a pair list into out and sets *count to the pairs stored. Every group
// is stored, a malformed one as the previous pair or (0,0). out must have room
// for every group of the text.
SENSOR_API void keyval_str2st(const std::string& text, KeyVal* out, u32* count);

// Appends "(key,value)" for each of the count pairs.
SENSOR_API void keyval_st2str(std::string& text, KeyVal* in, u32 count);

// The number of groups keyval_str2st would store for text: the room it needs.
SENSOR_API u32 keyval_str_count(const std::string& text);

// Asks the ISP (channel already counted from 0) to correct, in place, the
// value of every key that it lists as dynamic. 0 when it completes.
SENSOR_API int keyval_correct(int p_nChannel_id, KeyVal* p_pKeyval, u32 p_nKeyValNum);
