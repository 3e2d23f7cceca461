#define SNS_SOURCE_UNIT "SensorFile.cpp"
#include "config/DnaStyle.h"

#include <cstdlib>
#include <limits>
#include <string>

#include "config/SensorXml.h"
#include "diag/SensorDiag.h"
#include "diag/SensorNumber.h"

int style2KeyValN(TiXmlElement* p_pElement, KeyVal* p_pKeyVal, u32* p_pnKeyValNum,
                  u32 p_nCapacity) {
    if (p_pElement == nullptr)
        return 0;
    const char* szId = p_pElement->Attribute("id");
    const char* szValue = p_pElement->Attribute("value");
    if (szId != nullptr && szValue != nullptr) {
        // Every scheme array and file has this many records; one more would
        // be written past the caller's storage. The rest of the style is
        // dropped, and the caller learns it from the result.
        SNS_ASSERT(*p_pnKeyValNum < p_nCapacity, "id(%s) value(%s) p_nCapacity(%u)\n", szId,
                   szValue, p_nCapacity);
        if (*p_pnKeyValNum >= p_nCapacity)
            return -1;
        p_pKeyVal[*p_pnKeyValNum].key = static_cast<u32>(sensorAtoi(szId));
        p_pKeyVal[*p_pnKeyValNum].value = static_cast<u32>(sensorAtoi(szValue));
        ++*p_pnKeyValNum;
    }
    for (TiXmlElement* pChild = p_pElement->FirstChildElement(); pChild != nullptr;
         pChild = pChild->NextSiblingElement()) {
        if (style2KeyValN(pChild, p_pKeyVal, p_pnKeyValNum, p_nCapacity) != 0)
            return -1;
    }
    return 0;
}

int style2KeyVal(TiXmlElement* p_pElement, KeyVal* p_pKeyVal, u32* p_pnKeyValNum) {
    return style2KeyValN(p_pElement, p_pKeyVal, p_pnKeyValNum, std::numeric_limits<u32>::max());
}

int getFctData(int p_channelID, char* p_szStyle, KeyVal* p_pKeyVal, u32* p_pnKeyValNum,
               bool p_bShowWDRFalg) {
    SNS_ASSERT(NULL != p_pKeyVal && NULL != p_pnKeyValNum, "");
    if (p_pnKeyValNum == NULL)
        return SNS_SUCCESS;
    *p_pnKeyValNum = 0;
    if (p_pKeyVal == NULL)
        return SNS_SUCCESS;

    std::string strDnaStyle;
    SNS_ASSERT_TEXT(SNS_SUCCESS == getDnaStyle(p_channelID, p_szStyle, strDnaStyle, p_bShowWDRFalg),
                    "SNS_SUCCESS == getDnaStyle(p_channelID,p_szStyle, strDnaStyle,p_bShowWDRFalg)",
                    "");

    SensorXmlDocument objDnaStyleDoc;
    SNS_ASSERT_TEXT(objDnaStyleDoc.LoadMem(strDnaStyle.c_str(), TIXML_ENCODING_UTF8),
                    "objDnaStyleDoc.LoadMem(strDnaStyle.c_str(), TIXML_ENCODING_UTF8)", "");

    TiXmlElement* pRootNode = objDnaStyleDoc.RootElement();
    SNS_ASSERT_TEXT(SNS_SUCCESS ==
                        style2KeyValN(pRootNode, p_pKeyVal, p_pnKeyValNum, SENSOR_FACTORY_CAPACITY),
                    "SNS_SUCCESS == style2KeyVal(pRootNode, p_pKeyVal, p_pnKeyValNum)",
                    "p_pnKeyValNum(%u)\n", *p_pnKeyValNum);
    return SNS_SUCCESS;
}
