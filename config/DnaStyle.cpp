#define SNS_SOURCE_UNIT "SensorFile.cpp"
#include "config/DnaStyle.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "config/SensorXml.h"
#include "controller/ISensorController.h"
#include "controller/SensorKeys.h"
#include "diag/SensorDiag.h"
#include "keyval/SensorNumber.h"

namespace {

// The commands whose value in the style is the user's own choice (shutters
// and the focus near limit): the style keeps it when the ISP accepts it.
bool keepsStyleValue(u32 p_nCmd) {
    return p_nCmd == KEY_MAX_SHUTTER || p_nCmd == KEY_FIX_SHUTTER ||
           p_nCmd == KEY_AUTO_FOCUS_NEAR_LIMIT;
}

// Tells an element's id by reading its attribute: the exported helpers work
// on any document, the host's included.
struct AttributeIds {
    bool has(const TiXmlElement* p_pElement, int p_nId) const {
        const char* szId = p_pElement->Attribute("id");
        return szId != nullptr && sensorAtoi(szId) == p_nId;
    }
};

// The next element after p_pElement in document order, descendants first.
TiXmlElement* nextInDocument(TiXmlElement* p_pElement) {
    if (TiXmlElement* pChild = p_pElement->FirstChildElement())
        return pChild;
    for (TiXmlNode* pNode = p_pElement; pNode != nullptr; pNode = pNode->Parent()) {
        if (TiXmlElement* pSibling = pNode->NextSiblingElement())
            return pSibling;
    }
    return nullptr;
}

// getDnaStyle searches its own document by id once per dynamic command and
// once per kept value: the ids are read and converted once, each element's
// user data pointing at its own. The document outlives the cache, and the
// walks change values and remove choices, never ids.
class IdCache {
public:
    explicit IdCache(TiXmlElement* p_pRoot) {
        size_t nCount = 0;
        for (TiXmlElement* p = p_pRoot; p != nullptr; p = nextInDocument(p))
            ++nCount;
        m_vecIds.reserve(nCount);
        for (TiXmlElement* p = p_pRoot; p != nullptr; p = nextInDocument(p)) {
            const char* szId = p->Attribute("id");
            m_vecIds.push_back({szId != nullptr, szId != nullptr ? sensorAtoi(szId) : 0});
            p->SetUserData(&m_vecIds.back());
        }
    }
    IdCache(const IdCache&) = delete;
    IdCache& operator=(const IdCache&) = delete;

    bool has(const TiXmlElement* p_pElement, int p_nId) const {
        const auto* pCached = static_cast<const CachedId*>(p_pElement->GetUserData());
        if (pCached == nullptr)
            return AttributeIds().has(p_pElement, p_nId);
        return pCached->bHas && pCached->nId == p_nId;
    }

private:
    struct CachedId {
        bool bHas;
        int nId;
    };
    std::vector<CachedId> m_vecIds;
};

// The depth-first search shared by the id helpers: visit(element) for every
// element with the id, in document order; a match's descendants are not
// searched, the rest of the document is.
template <typename Ids, typename Visit>
int forEachWithId(TiXmlElement* p_pElement, int p_nId, const Ids& p_objIds, Visit visit) {
    if (p_pElement == nullptr)
        return 0;
    if (p_objIds.has(p_pElement, p_nId)) {
        visit(p_pElement);
        return 0;
    }
    for (TiXmlElement* pChild = p_pElement->FirstChildElement(); pChild != nullptr;
         pChild = pChild->NextSiblingElement()) {
        if (forEachWithId(pChild, p_nId, p_objIds, visit) != 0)
            return -1;
    }
    return 0;
}

template <typename Ids>
int nodeByCmdId(TiXmlElement* p_pElement, int p_nId, const Ids& p_objIds, TiXmlElement*& p_pFound) {
    return forEachWithId(p_pElement, p_nId, p_objIds,
                         [&](TiXmlElement* pMatch) { p_pFound = pMatch; });
}

template <typename Ids>
int dnaValByCmdId(TiXmlElement* p_pElement, int p_nId, const Ids& p_objIds, int& p_nValue) {
    return forEachWithId(p_pElement, p_nId, p_objIds, [&](TiXmlElement* pMatch) {
        if (const char* szValue = pMatch->Attribute("value"))
            p_nValue = sensorAtoi(szValue);
    });
}

// The number of valid entries, whatever count the ISP claims.
u32 validItems(const ia_dynamic_params_attr_st& p_stRange) {
    return std::min<u32>(p_stRange.items_cnt, IA_DYNAMIC_ITEMS_MAX);
}

void deleteItemById(TiXmlElement* p_pRoot, int p_nId, const IdCache& p_objIds) {
    TiXmlElement* pFound = nullptr;
    nodeByCmdId(p_pRoot, p_nId, p_objIds, pFound);
    DeleteNode(p_pRoot, pFound);
}

} // namespace

int getNodebyCmdId(TiXmlElement* p_pElement, int p_nId, TiXmlElement*& p_pFound) {
    return nodeByCmdId(p_pElement, p_nId, AttributeIds(), p_pFound);
}

int getDnaValbyCmdId(TiXmlElement* p_pElement, int p_nId, int& p_nValue) {
    return dnaValByCmdId(p_pElement, p_nId, AttributeIds(), p_nValue);
}

int ModifyNodebyCmdId(TiXmlElement* p_pElement, int p_nId) {
    // High-light and back-light compensation exclude each other: each item
    // names the other as the one it disables.
    int nOther = -1;
    if (p_nId == KEY_HLC_SWITCH)
        nOther = KEY_BLC_SWITCH;
    else if (p_nId == KEY_BLC_SWITCH)
        nOther = KEY_HLC_SWITCH;
    return forEachWithId(p_pElement, p_nId, AttributeIds(), [&](TiXmlElement* pMatch) {
        if (nOther >= 0)
            pMatch->SetAttribute("enable_list", nOther);
    });
}

int DeleteNode(TiXmlElement* p_pRoot, TiXmlElement* p_pNode) {
    if (p_pRoot == nullptr || p_pNode == nullptr)
        return -1;
    // The document's root element has the document, not an element, as parent.
    TiXmlNode* pParent = p_pNode->Parent();
    if (pParent != nullptr && pParent->ToElement() != nullptr)
        pParent->RemoveChild(p_pNode);
    return 0;
}

namespace {

// The walk of doDnaStyle with a way to tell ids. Same name, so that its
// messages name the function the host knows.
template <typename Ids>
int doDnaStyle(TiXmlElement* p_pElement, int p_nCmd, const ia_dynamic_params_attr_st* p_pRange,
               const Ids& p_objIds) {
    if (p_pElement == nullptr)
        return 0;
    if (p_pRange == nullptr)
        return -1;
    if (p_objIds.has(p_pElement, p_nCmd)) {
        SNS_DBG("_________________cmd(%d) default(%d)__________________\n", p_nCmd,
                static_cast<int>(p_pRange->default_value));
        p_pElement->SetAttribute("value", static_cast<int>(p_pRange->default_value));

        // The choices the ISP does not offer leave the list.
        const u32 nItems = validItems(*p_pRange);
        TiXmlElement* pNext = nullptr;
        for (TiXmlElement* pChoice = p_pElement->FirstChildElement(); pChoice != nullptr;
             pChoice = pNext) {
            pNext = pChoice->NextSiblingElement();
            const char* szIndex = pChoice->Attribute("index");
            if (szIndex == nullptr)
                return -1;
            const u32 nIndex = static_cast<u32>(sensorAtoi(szIndex));
            const u32* pEnd = p_pRange->item + nItems;
            if (std::find(p_pRange->item, pEnd, nIndex) == pEnd) {
                SNS_DBG("_________________delete comboitem(%s)__________________\n", szIndex);
                p_pElement->RemoveChild(pChoice);
            }
        }
        return 0;
    }
    for (TiXmlElement* pChild = p_pElement->FirstChildElement(); pChild != nullptr;
         pChild = pChild->NextSiblingElement()) {
        if (doDnaStyle(pChild, p_nCmd, p_pRange, p_objIds) != 0)
            return -1;
    }
    return 0;
}

} // namespace

int doDnaStyle(TiXmlElement* p_pElement, int p_nCmd, const ia_dynamic_params_attr_st* p_pRange) {
    return doDnaStyle(p_pElement, p_nCmd, p_pRange, AttributeIds());
}

int getDnaStyle(int p_channelID, const char* p_szStyle, std::string& p_strOut,
                bool p_bShowWDRFalg) {
    ia_dynamic_params_cmds_st dnaCmdList{};
    const int nListResult =
        ia_ioctrl_v2(p_channelID - 1, IA_CMD_DYNAMIC_PARAMS_CMDS_GET, IA_CMD_OPT_GET, &dnaCmdList);
    SNS_ASSERT_TEXT(SNS_SUCCESS == nListResult,
                    "SNS_SUCCESS == ia_ioctrl_v2(p_channelID-1, IA_CMD_DYNAMIC_PARAMS_CMDS_GET, "
                    "IA_CMD_OPT_GET, (void*)(&dnaCmdList))",
                    "");
    // A refused query must not leave half a list behind.
    if (SNS_SUCCESS != nListResult)
        dnaCmdList = ia_dynamic_params_cmds_st{};

    SensorXmlDocument objStyleXmlDoc;
    SNS_ASSERT_TEXT(objStyleXmlDoc.LoadMem(p_szStyle, TIXML_ENCODING_UTF8),
                    "objStyleXmlDoc.LoadMem(szStyle, TIXML_ENCODING_UTF8)", "");
    TiXmlElement* pRoot = objStyleXmlDoc.RootElement();
    const IdCache objIds(pRoot);

    SNS_DBG("dnaCmdList.cmd_cnt(%d)\n", static_cast<int>(dnaCmdList.cmd_cnt));
    // The list holds 16 commands whatever count the ISP claims.
    SNS_ASSERT(dnaCmdList.cmd_cnt <= IA_DYNAMIC_CMDS_MAX, "dnaCmdList.cmd_cnt(%u)\n",
               dnaCmdList.cmd_cnt);
    const u32 nCmds = std::min<u32>(dnaCmdList.cmd_cnt, IA_DYNAMIC_CMDS_MAX);

    // One record for all commands: a refused range query leaves the previous
    // command's range in it.
    ia_dynamic_params_attr_st dnaParamList{};
    for (u32 i = 0; i < nCmds; ++i) {
        const u32 nCmd = dnaCmdList.cmd_list[i];
        SNS_DBG("dnaCmdList.cmd_list[%d] = cmd(%d)\n", static_cast<int>(i), static_cast<int>(nCmd));
        SNS_ASSERT_TEXT(SNS_SUCCESS == ia_ioctrl_v2(p_channelID - 1, static_cast<int>(nCmd),
                                                    IA_CMD_OPT_GET_PARAM_RNAGE, &dnaParamList),
                        "SNS_SUCCESS == ia_ioctrl_v2(p_channelID-1, "
                        "(ia_cmd_e)dnaCmdList.cmd_list[i], IA_CMD_OPT_GET_PARAM_RNAGE, "
                        "(void*)(&dnaParamList))",
                        "");
        SNS_ASSERT(dnaParamList.items_cnt <= IA_DYNAMIC_ITEMS_MAX,
                   "cmd(%u) dnaParamList.items_cnt(%u)\n", nCmd, dnaParamList.items_cnt);

        if (keepsStyleValue(nCmd)) {
            int nVal = 0;
            dnaValByCmdId(pRoot, static_cast<int>(nCmd), objIds, nVal);
            // 100 has always meant "take the ISP's default" for these items.
            if (nVal != 100) {
                printf("dnaCmdList.cmd_list[%d] = dnaParamList.items_cnt(%d)\n",
                       static_cast<int>(i), static_cast<int>(dnaParamList.items_cnt));
                const u32 nItems = validItems(dnaParamList);
                for (u32 j = 0; j < nItems; ++j) {
                    printf(" dnaParamList.item[%d] = %d nVal = %d \n", static_cast<int>(j),
                           static_cast<int>(dnaParamList.item[j]), nVal);
                    if (static_cast<int>(dnaParamList.item[j]) == nVal) {
                        dnaParamList.default_value = static_cast<u32>(nVal);
                        break;
                    }
                }
            }
        }

        SNS_ASSERT_TEXT(SNS_SUCCESS ==
                            doDnaStyle(pRoot, static_cast<int>(nCmd), &dnaParamList, objIds),
                        "SNS_SUCCESS == doDnaStyle(objStyleXmlDoc.RootElement(), "
                        "dnaCmdList.cmd_list[i], &dnaParamList)",
                        "");
    }

    if (p_bShowWDRFalg)
        deleteItemById(pRoot, KEY_EMPTY1, objIds);
    if (getshowBeawayFalg())
        deleteItemById(pRoot, KEY_EMPTY2, objIds);

    // The document was parsed from memory and has no file name, so saving it
    // could write nowhere; it is only serialised.
    objStyleXmlDoc.getXmlString(p_strOut);
    return SNS_SUCCESS;
}
