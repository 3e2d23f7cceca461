// Builds the tt: elements of the imaging answers: nested containers from the
// table's paths, and single elements and ranges. Its own unit because the
// settings, the options and the focus answers all write their XML with it.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "sensor-onvif/Soap.h"

namespace sensor_onvif {
namespace imaging {

// Writes nested elements from (path, leaf XML) pairs in document order:
// consecutive paths share their common containers.
class Nester {
public:
    explicit Nester(std::string& p_strOut) : m_strOut(p_strOut) {}
    ~Nester() { closeTo(0); }
    // Opens the parents of the last part of p_strPath, closing those of the
    // previous leaf it does not share, and appends p_strXml.
    void leaf(const std::string& p_strPath, const std::string& p_strXml) {
        openParentsOf(p_strPath);
        m_strOut += p_strXml;
    }
    // The same with the last part's element around the escaped p_strText.
    void leafText(const std::string& p_strPath, const std::string& p_strText) {
        const std::string_view name = openParentsOf(p_strPath);
        m_strOut.append("<tt:").append(name).append(">");
        m_strOut += xmlEscape(p_strText);
        m_strOut.append("</tt:").append(name).append(">");
    }

private:
    // Answers the path's last part; the parts are views into p_strPath, and
    // the open names are short enough to live inside their strings, so a
    // whole answer is nested without allocating.
    std::string_view openParentsOf(const std::string& p_strPath) {
        m_vecParts.clear();
        std::string_view rest(p_strPath);
        for (size_t e = rest.find('/'); e != std::string_view::npos; e = rest.find('/')) {
            m_vecParts.push_back(rest.substr(0, e));
            rest.remove_prefix(e + 1);
        }
        size_t nCommon = 0;
        while (nCommon < m_vecOpen.size() && nCommon < m_vecParts.size() &&
               m_vecOpen[nCommon] == m_vecParts[nCommon])
            ++nCommon;
        closeTo(nCommon);
        for (size_t i = nCommon; i < m_vecParts.size(); ++i) {
            m_strOut.append("<tt:").append(m_vecParts[i]).append(">");
            m_vecOpen.emplace_back(m_vecParts[i]);
        }
        return rest;
    }
    void closeTo(size_t p_nDepth) {
        while (m_vecOpen.size() > p_nDepth) {
            m_strOut.append("</tt:").append(m_vecOpen.back()).append(">");
            m_vecOpen.pop_back();
        }
    }
    std::string& m_strOut;
    std::vector<std::string> m_vecOpen;
    std::vector<std::string_view> m_vecParts;
};

// The last part of a path: "Exposure/Iris" -> "Iris".
std::string lastPart(const std::string& p_strPath);
// <tt:name>escaped text</tt:name>
std::string element(const std::string& p_strName, const std::string& p_strText);
// <tt:name><tt:Min>..</tt:Min><tt:Max>..</tt:Max></tt:name>
std::string range(const std::string& p_strName, double p_dMin, double p_dMax);

} // namespace imaging
} // namespace sensor_onvif
