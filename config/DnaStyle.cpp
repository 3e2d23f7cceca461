#define SNS_SOURCE_UNIT "SensorFile.cpp"
#include "config/DnaStyle.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "config/SensorXml.h"
#include "config/ShowFlags.h"
#include "keyval/SensorKeys.h"
#include "diag/SensorDiag.h"
#include "diag/SensorNumber.h"

namespace {

// The commands whose value in the style is the user's own choice (shutters
// and the focus near limit): the style keeps it when the ISP accepts it.
bool keepsStyleValue(u32 p_nCmd) {
    return p_nCmd == KEY_MAX_SHUTTER || p_nCmd == KEY_FIX_SHUTTER ||
           p_nCmd == KEY_AUTO_FOCUS_NEAR_LIMIT;
}

// The element after p_pElement and its descendants in document order, within
// p_pRoot's subtree; null after the last.
TiXmlElement* afterSubtree(TiXmlElement* p_pElement, const TiXmlElement* p_pRoot) {
    for (TiXmlElement* p = p_pElement; p != nullptr && p != p_pRoot;) {
        if (TiXmlElement* pSibling = p->NextSiblingElement())
            return pSibling;
        TiXmlNode* pParent = p->Parent();
        p = pParent != nullptr ? pParent->ToElement() : nullptr;
    }
    return nullptr;
}

// The element a node can be removed from: its parent when that is an
// element. The document's root element has the document as parent and stays.
TiXmlNode* elementParentOf(TiXmlElement* p_pElement) {
    TiXmlNode* pParent = p_pElement != nullptr ? p_pElement->Parent() : nullptr;
    return pParent != nullptr && pParent->ToElement() != nullptr ? pParent : nullptr;
}

// Tells ids by reading each element's attribute as the walk meets it: the
// exported helpers work on any document, the host's included.
class AttributeIds {
public:
    // The elements of a subtree with an id, in document order; a match's
    // descendants are not searched (its children are its choices), the rest
    // of the subtree is.
    class Walk {
    public:
        explicit Walk(TiXmlElement* p_pRoot) : m_pRoot(p_pRoot), m_pAt(p_pRoot) {}
        TiXmlElement* nextWithId(int p_nId) {
            while (m_pAt != nullptr) {
                TiXmlElement* p = m_pAt;
                const char* szId = p->Attribute("id");
                if (szId != nullptr && sensorAtoi(szId) == p_nId) {
                    m_pAt = afterSubtree(p, m_pRoot);
                    return p;
                }
                TiXmlElement* pChild = p->FirstChildElement();
                m_pAt = pChild != nullptr ? pChild : afterSubtree(p, m_pRoot);
            }
            return nullptr;
        }

    private:
        const TiXmlElement* m_pRoot;
        TiXmlElement* m_pAt;
    };

    Walk walk(TiXmlElement* p_pRoot) const { return Walk(p_pRoot); }
    void forget(TiXmlElement*) {}
};

// getDnaStyle walks its own document once per dynamic command and once per
// kept value. Its elements are listed once, in document order, each with its
// id read and converted and the end of its subtree, so that every walk runs
// down a flat list instead of the tree. The walks change values and remove
// choices and items, never ids; what they remove is marked in the list
// before it goes, so no walk reaches it again. The document outlives the list.
class IdCache {
    struct Entry {
        TiXmlElement* pElement;
        size_t nEnd; // one past the last of its descendants
        int nId;
        bool bHas;
        bool bGone;
    };

public:
    explicit IdCache(TiXmlElement* p_pRoot) {
        if (p_pRoot != nullptr)
            add(p_pRoot);
    }
    IdCache(const IdCache&) = delete;
    IdCache& operator=(const IdCache&) = delete;

    // The same walk as AttributeIds', over a listed element's subtree.
    class Walk {
    public:
        Walk(std::vector<Entry>& p_vecEntries, size_t p_nAt, size_t p_nEnd)
            : m_vecEntries(p_vecEntries), m_nAt(p_nAt), m_nEnd(p_nEnd) {}
        TiXmlElement* nextWithId(int p_nId) {
            while (m_nAt < m_nEnd) {
                const Entry& stEntry = m_vecEntries[m_nAt];
                if (stEntry.bGone) {
                    m_nAt = stEntry.nEnd;
                } else if (stEntry.bHas && stEntry.nId == p_nId) {
                    m_nAt = stEntry.nEnd;
                    return stEntry.pElement;
                } else {
                    ++m_nAt;
                }
            }
            return nullptr;
        }

    private:
        std::vector<Entry>& m_vecEntries;
        size_t m_nAt;
        size_t m_nEnd;
    };

    Walk walk(TiXmlElement* p_pRoot) {
        const size_t nAt = indexOf(p_pRoot);
        return nAt < m_vecEntries.size() ? Walk(m_vecEntries, nAt, m_vecEntries[nAt].nEnd)
                                         : Walk(m_vecEntries, 0, 0);
    }

    // Called before p_pElement leaves the document.
    void forget(TiXmlElement* p_pElement) {
        const size_t nAt = indexOf(p_pElement);
        if (nAt < m_vecEntries.size())
            m_vecEntries[nAt].bGone = true;
    }

private:
    // Lists p_pElement and its descendants; each element's user data holds
    // its entry's index plus one (an unlisted element's is null).
    void add(TiXmlElement* p_pElement) {
        const size_t nAt = m_vecEntries.size();
        const char* szId = p_pElement->Attribute("id");
        m_vecEntries.push_back(
            {p_pElement, 0, szId != nullptr ? sensorAtoi(szId) : 0, szId != nullptr, false});
        p_pElement->SetUserData(reinterpret_cast<void*>(static_cast<uintptr_t>(nAt + 1)));
        for (TiXmlElement* pChild = p_pElement->FirstChildElement(); pChild != nullptr;
             pChild = pChild->NextSiblingElement())
            add(pChild);
        m_vecEntries[nAt].nEnd = m_vecEntries.size();
    }

    // The element's entry index; past the end for an unlisted element.
    size_t indexOf(TiXmlElement* p_pElement) const {
        const void* pData = p_pElement != nullptr ? p_pElement->GetUserData() : nullptr;
        return static_cast<size_t>(reinterpret_cast<uintptr_t>(pData)) - 1;
    }

    std::vector<Entry> m_vecEntries;
};

// visit(element) for every element with the id, in document order; a
// match's descendants are not searched, the rest of the document is.
// A null element has no matches.
template <typename Ids, typename Visit>
void forEachWithId(TiXmlElement* p_pElement, int p_nId, Ids& p_objIds, Visit visit) {
    auto objWalk = p_objIds.walk(p_pElement);
    while (TiXmlElement* pMatch = objWalk.nextWithId(p_nId))
        visit(pMatch);
}

template <typename Ids>
void nodeByCmdId(TiXmlElement* p_pElement, int p_nId, Ids& p_objIds, TiXmlElement*& p_pFound) {
    forEachWithId(p_pElement, p_nId, p_objIds, [&](TiXmlElement* pMatch) { p_pFound = pMatch; });
}

template <typename Ids>
void dnaValByCmdId(TiXmlElement* p_pElement, int p_nId, Ids& p_objIds, int& p_nValue) {
    forEachWithId(p_pElement, p_nId, p_objIds, [&](TiXmlElement* pMatch) {
        if (const char* szValue = pMatch->Attribute("value"))
            p_nValue = sensorAtoi(szValue);
    });
}

// The number of valid entries, whatever count the ISP claims.
u32 validItems(const ia_dynamic_params_attr_st& p_stRange) {
    return std::min<u32>(p_stRange.items_cnt, IA_DYNAMIC_ITEMS_MAX);
}

void deleteItemById(TiXmlElement* p_pRoot, int p_nId, IdCache& p_objIds) {
    TiXmlElement* pFound = nullptr;
    nodeByCmdId(p_pRoot, p_nId, p_objIds, pFound);
    // Only what DeleteNode takes out of the document leaves the list.
    if (elementParentOf(pFound) != nullptr)
        p_objIds.forget(pFound);
    DeleteNode(p_pRoot, pFound);
}

} // namespace

int getNodebyCmdId(TiXmlElement* p_pElement, int p_nId, TiXmlElement*& p_pFound) {
    AttributeIds objIds;
    nodeByCmdId(p_pElement, p_nId, objIds, p_pFound);
    return 0;
}

int getDnaValbyCmdId(TiXmlElement* p_pElement, int p_nId, int& p_nValue) {
    AttributeIds objIds;
    dnaValByCmdId(p_pElement, p_nId, objIds, p_nValue);
    return 0;
}

int ModifyNodebyCmdId(TiXmlElement* p_pElement, int p_nId) {
    // High-light and back-light compensation exclude each other: each item
    // names the other as the one it disables.
    int nOther = -1;
    if (p_nId == KEY_HLC_SWITCH)
        nOther = KEY_BLC_SWITCH;
    else if (p_nId == KEY_BLC_SWITCH)
        nOther = KEY_HLC_SWITCH;
    AttributeIds objIds;
    forEachWithId(p_pElement, p_nId, objIds, [&](TiXmlElement* pMatch) {
        if (nOther >= 0)
            pMatch->SetAttribute("enable_list", nOther);
    });
    return 0;
}

int DeleteNode(TiXmlElement* p_pRoot, TiXmlElement* p_pNode) {
    if (p_pRoot == nullptr || p_pNode == nullptr)
        return -1;
    if (TiXmlNode* pParent = elementParentOf(p_pNode))
        pParent->RemoveChild(p_pNode);
    return 0;
}

namespace {

// The walk of doDnaStyle with a way to tell ids. Same name, so that its
// messages name the function the host knows.
template <typename Ids>
int doDnaStyle(TiXmlElement* p_pElement, int p_nCmd, const ia_dynamic_params_attr_st* p_pRange,
               Ids& p_objIds) {
    if (p_pElement == nullptr)
        return 0;
    if (p_pRange == nullptr)
        return -1;
    auto objWalk = p_objIds.walk(p_pElement);
    while (TiXmlElement* pItem = objWalk.nextWithId(p_nCmd)) {
        SNS_DBG("_________________cmd(%d) default(%d)__________________\n", p_nCmd,
                static_cast<int>(p_pRange->default_value));
        pItem->SetAttribute("value", static_cast<int>(p_pRange->default_value));

        // The choices the ISP does not offer leave the list.
        const u32 nItems = validItems(*p_pRange);
        TiXmlElement* pNext = nullptr;
        for (TiXmlElement* pChoice = pItem->FirstChildElement(); pChoice != nullptr;
             pChoice = pNext) {
            pNext = pChoice->NextSiblingElement();
            const char* szIndex = pChoice->Attribute("index");
            if (szIndex == nullptr)
                return -1;
            const u32 nIndex = static_cast<u32>(sensorAtoi(szIndex));
            const u32* pEnd = p_pRange->item + nItems;
            if (std::find(p_pRange->item, pEnd, nIndex) == pEnd) {
                SNS_DBG("_________________delete comboitem(%s)__________________\n", szIndex);
                p_objIds.forget(pChoice);
                pItem->RemoveChild(pChoice);
            }
        }
    }
    return 0;
}

} // namespace

int doDnaStyle(TiXmlElement* p_pElement, int p_nCmd, const ia_dynamic_params_attr_st* p_pRange) {
    AttributeIds objIds;
    return doDnaStyle(p_pElement, p_nCmd, p_pRange, objIds);
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
    IdCache objIds(pRoot);

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
