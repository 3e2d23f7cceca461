// The style rewritten with the ranges the ISP reports, and the factory values
// derived from it.
#pragma once

#include <string>

#include <tinyxml.h>

#include "host/ia_ioctrl_v2.h"
#include "keyval/KeyVal.h"

SENSOR_API int getDnaStyle(int p_channelID, const char* p_szStyle, std::string& p_strOut,
                           bool p_bShowWDRFalg);
SENSOR_API int doDnaStyle(TiXmlElement* p_pElement, int p_nCmd,
                          const ia_dynamic_params_attr_st* p_pRange);
SENSOR_API int getDnaValbyCmdId(TiXmlElement* p_pElement, int p_nId, int& p_nValue);
SENSOR_API int getNodebyCmdId(TiXmlElement* p_pElement, int p_nId, TiXmlElement*& p_pFound);
SENSOR_API int DeleteNode(TiXmlElement* p_pRoot, TiXmlElement* p_pNode);
SENSOR_API int ModifyNodebyCmdId(TiXmlElement* p_pElement, int p_nId);

// Appends a record for every element with "id" and "value", document order.
SENSOR_API int style2KeyVal(TiXmlElement* p_pElement, KeyVal* p_pKeyVal, u32* p_pnKeyValNum);
// The same, never writing more than p_nCapacity records.
SENSOR_API int style2KeyValN(TiXmlElement* p_pElement, KeyVal* p_pKeyVal, u32* p_pnKeyValNum,
                             u32 p_nCapacity);
// The factory values of channel p_channelID (from 1); 0 always. out has room
// for SENSOR_FACTORY_CAPACITY records.
#define SENSOR_FACTORY_CAPACITY 150
SENSOR_API int getFctData(int p_channelID, char* p_szStyle, KeyVal* p_pKeyVal, u32* p_pnKeyValNum,
                          bool p_bShowWDRFalg);
