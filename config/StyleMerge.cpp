#define SNS_SOURCE_UNIT "SensorFile.cpp"
#include "diag/SensorDiag.h"

#include "config/StyleMerge.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <string>
#include <vector>

#include "config/SensorXml.h"
#include "host/StringHandler.h"
#include "diag/DeviceRoot.h"
#include "storage/SensorFile.h"

namespace {

// Only this many leading characters of a rule value and a detail value are
// compared, so one rule serves a whole sensor series (IMX327 and IMX32x).
const size_t kCompareLen = 5;

// Two channels start up side by side and share the one merge file; each
// save-and-read-back must see its own document.
std::mutex g_mergeFileMutex;

// Whether one rule attribute agrees with the module detail: one of its
// comma-separated values, or the whole value, agrees with the detail field
// of the same name in its first characters. nVal receives the detail value
// (cut to the buffer; only five characters count).
bool attributeAgrees(const char* p_szDetail, const TiXmlAttribute* modi_attr, char (&nVal)[8]) {
    std::memset(nVal, 0, sizeof(nVal));
    if (getDetailFieldToStrN(p_szDetail, modi_attr->Name(), nVal, sizeof(nVal) - 1) != SNS_SUCCESS)
        return false;
    std::vector<std::string> vecValues;
    StringHandler::split(modi_attr->Value(), ",", vecValues);
    for (const std::string& strValue : vecValues) {
        if (std::strncmp(strValue.c_str(), nVal, kCompareLen) == 0)
            return true;
    }
    return std::strncmp(modi_attr->Value(), nVal, kCompareLen) == 0;
}

// SaveFile writes into the device's "/tmp"; a fresh device root may lack it.
void ensureFolderOf(const std::string& p_strPath) {
    const std::string::size_type pos = p_strPath.rfind('/');
    if (pos == std::string::npos || pos == 0)
        return;
    const std::string strFolder = p_strPath.substr(0, pos);
    struct stat st;
    if (::stat(strFolder.c_str(), &st) == 0)
        return;
    ensureFolderOf(strFolder);
    if (::mkdir(strFolder.c_str(), 01777) != 0 && errno != EEXIST)
        return;
}

// Reads or writes (step is ::read or a write over the same buffer) until
// p_nLength bytes moved, the file ended or an error other than an interrupt
// came; answers the count moved.
template <typename Step> size_t transferAll(int p_nFd, char* p_pData, size_t p_nLength, Step step) {
    size_t nDone = 0;
    while (nDone < p_nLength) {
        const ssize_t n = step(p_nFd, p_pData + nDone, p_nLength - nDone);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            break;
        nDone += static_cast<size_t>(n);
    }
    return nDone;
}

// Whether the file at p_strPath holds exactly p_strText.
bool fileHolds(const std::string& p_strPath, const std::string& p_strText) {
    const int fd = ::open(p_strPath.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0)
        return false;
    std::string strOld(p_strText.size() + 1, '\0');
    const size_t nRead = transferAll(fd, &strOld[0], strOld.size(), ::read);
    ::close(fd);
    return nRead == p_strText.size() && strOld.compare(0, nRead, p_strText) == 0;
}

// Finds what TinyXML's printer lays out otherwise than SaveFile does: a text
// node (beside other children, and a CDATA section) and an XML declaration
// inside an element, which the printer indents and SaveFile writes at the
// line's start. For elements, attributes, comments, other markup and the
// document's own declaration the two agree.
class UnlikeSaveFileFinder : public TiXmlVisitor {
public:
    bool Visit(const TiXmlText&) override {
        m_bFound = true;
        return false;
    }
    bool Visit(const TiXmlDeclaration& p_objDecl) override {
        const TiXmlNode* pParent = p_objDecl.Parent();
        if (pParent != nullptr && pParent->ToDocument() == nullptr)
            m_bFound = true;
        return !m_bFound;
    }
    bool found() const { return m_bFound; }

private:
    bool m_bFound = false;
};

// Whether the printer writes the document exactly as SaveFile does: nothing
// the two lay out differently, and no byte-order mark that SaveFile would
// write back.
bool printsAsSaved(const TiXmlDocument& p_objDoc, const char* p_szText) {
    if (p_szText != nullptr && std::strncmp(p_szText, "\xEF\xBB\xBF", 3) == 0)
        return false;
    UnlikeSaveFileFinder objFinder;
    p_objDoc.Accept(&objFinder);
    return !objFinder.found();
}

// Writes the document to the merge file exactly as TinyXML's SaveFile
// writes it: through the printer where the two agree (a style is elements
// and attributes), else through SaveFile's own print to a stream in memory.
// A merge file that already holds these bytes (the same style at every
// start-up) is written over in place rather than cut to nothing and filled
// again.
void saveMergeFile(const SensorXmlDocument& p_objDoc, bool p_bPrintable,
                   const std::string& p_strPath) {
    std::string strText;
    if (p_bPrintable) {
        p_objDoc.getXmlString(strText);
    } else {
        char* pBuf = nullptr;
        size_t nLen = 0;
        FILE* pMem = ::open_memstream(&pBuf, &nLen);
        if (pMem == nullptr) {
            p_objDoc.SaveFile(p_strPath.c_str());
            return;
        }
        p_objDoc.SaveFile(pMem);
        std::fclose(pMem);
        strText.assign(pBuf != nullptr ? pBuf : "", nLen);
        std::free(pBuf);
    }

    const int nFlags = fileHolds(p_strPath, strText) ? O_WRONLY : O_WRONLY | O_CREAT | O_TRUNC;
    const int fd = ::open(p_strPath.c_str(), nFlags | O_CLOEXEC, 0666);
    if (fd < 0)
        return;
    (void)transferAll(fd, &strText[0], strText.size(),
                      [](int f, char* p, size_t n) { return ::write(f, p, n); });
    ::close(fd);
}

} // namespace

int mergeStyle(ModuleConfig* p_pstModuleConfig, char** ui_style, char* ui_styleDiversity) {
    SensorXmlDocument doc_style;
    SensorXmlDocument doc_style_div;
    SNS_ASSERT(doc_style.LoadMem(*ui_style, TIXML_ENCODING_UTF8), "");
    SNS_ASSERT(doc_style_div.LoadMem(ui_styleDiversity, TIXML_ENCODING_UTF8), "");

    const char* szDetail = p_pstModuleConfig != nullptr ? p_pstModuleConfig->szDetail : "";
    TiXmlElement* node_first = nullptr;
    SNS_ASSERT(NULL != (node_first = doc_style_div.RootElement()), "");

    // Rules apply in document order; a later rule sees what earlier ones did.
    for (; node_first != nullptr; node_first = node_first->NextSiblingElement()) {
        // Attributes are alternatives: the first that agrees makes the rule apply.
        const TiXmlAttribute* modi_attr = node_first->FirstAttribute();
        for (; modi_attr != nullptr; modi_attr = modi_attr->Next()) {
            SNS_DBG("modi_attr->Name()(%s), modi_attr->Value()(%s)\n", modi_attr->Name(),
                    modi_attr->Value());
            char nVal[8];
            if (attributeAgrees(szDetail, modi_attr, nVal))
                break;
            SNS_DBG("modi_attr->Name()(%s), modi_attr->Value()(%s) nVal(%s)\n", modi_attr->Name(),
                    modi_attr->Value(), nVal);
        }
        if (modi_attr == nullptr)
            continue;
        SNS_DBG("modi_attr->Name()(%s), modi_attr->Value()(%s)\n", modi_attr->Name(),
                modi_attr->Value());

        TiXmlElement* node_second = nullptr;
        SNS_ASSERT(NULL != (node_second = node_first->FirstChildElement()), "");
        for (; node_second != nullptr; node_second = node_second->NextSiblingElement()) {
            SNS_DBG("modi_attr->Name()(%s), modi_attr->Value()(%s)\n", modi_attr->Name(),
                    modi_attr->Value());
            updateStyleTab(&doc_style, node_second->Value(), node_second->Attribute("tab_key"),
                           node_second->FirstChildElement());
            SNS_DBG("modi_attr->Name()(%s), modi_attr->Value()(%s)\n", modi_attr->Name(),
                    modi_attr->Value());
        }
    }

    std::lock_guard<std::mutex> guard(g_mergeFileMutex);
    const std::string strMergeFile = sensorDevicePath(SENSOR_MERGE_STYLE_FILE);
    ensureFolderOf(strMergeFile);
    // The merge file is ours to replace: a pipe in its place would block the
    // save until someone reads it.
    if (sensorIsSpecialFile(strMergeFile))
        (void)::unlink(strMergeFile.c_str());
    // The style text as given is still *ui_style here.
    saveMergeFile(doc_style, printsAsSaved(doc_style, *ui_style), strMergeFile);
    // The whole document as text is built only when the info level shows it.
    if (snsDecide(SNS_LEVEL_INFO)) {
        std::string strXml;
        doc_style.getXmlString(strXml);
        SNS_PRINT_DECIDED(SNS_TAG_INFO, 0, false, "%s\n", strXml.c_str());
    }

    const int64_t file_len = getFileLen(SENSOR_MERGE_STYLE_FILE);
    const size_t nBlock = static_cast<size_t>(file_len > 0 ? file_len : 0) + 1;
    char* szMerged = static_cast<char*>(std::realloc(*ui_style, nBlock));
    if (szMerged != nullptr) {
        *ui_style = szMerged;
        std::memset(*ui_style, 0, nBlock);
        SNS_ASSERT_TEXT(loadFromFile(SENSOR_MERGE_STYLE_FILE, *ui_style, file_len) > 0,
                        "loadFromFile(\"" SENSOR_MERGE_STYLE_FILE "\", *ui_style, file_len) > 0",
                        "");
    }
    return SNS_SUCCESS;
}

int updateStyleTab(TiXmlDocument* doc_style, const char* p_szOperation, const char* p_szTabKey,
                   const TiXmlElement* p_pContent) {
    TiXmlElement* pRoot = doc_style != nullptr ? doc_style->RootElement() : nullptr;
    TiXmlElement* tab_node = pRoot != nullptr ? pRoot->FirstChildElement() : nullptr;
    SNS_ASSERT_TEXT(NULL != tab_node,
                    "NULL != (tab_node = doc_style->RootElement()->FirstChildElement())", "");
    if (tab_node == nullptr || p_szTabKey == nullptr || p_szOperation == nullptr)
        return SNS_SUCCESS;

    for (; tab_node != nullptr; tab_node = tab_node->NextSiblingElement()) {
        const char* szKey = tab_node->Attribute("key");
        if (szKey != nullptr && std::strcmp(szKey, p_szTabKey) == 0)
            break;
    }
    if (tab_node == nullptr)
        return SNS_SUCCESS;

    if (std::strcmp(p_szOperation, "Modify") == 0) {
        // The new tab takes the old one's place.
        if (p_pContent != nullptr) {
            pRoot->InsertAfterChild(tab_node, *p_pContent);
            pRoot->RemoveChild(tab_node);
        }
    } else if (std::strcmp(p_szOperation, "AddAfter") == 0) {
        if (p_pContent != nullptr)
            pRoot->InsertAfterChild(tab_node, *p_pContent);
    } else if (std::strcmp(p_szOperation, "Delete") == 0) {
        pRoot->RemoveChild(tab_node);
    }
    return SNS_SUCCESS;
}
