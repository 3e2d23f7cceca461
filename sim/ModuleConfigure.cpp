// The simulated host's module configuration and its XML parser.
#include "host/ModuleConfigure.h"

#include <cstdlib>

#include <sys/stat.h>

#include <tinyxml.h>

ModuleConfigure::ModuleConfigure() : m_nModuleId(0) {}

unsigned int ModuleConfigure::getModuleId() const {
    return m_nModuleId;
}

std::string ModuleConfigure::getDetail() const {
    return m_strDetail;
}

std::string ModuleConfigure::getParameters() const {
    return m_strParameters;
}

void ModuleConfigure::setModuleId(unsigned int id) {
    m_nModuleId = id;
}

void ModuleConfigure::setDetail(const std::string& detail) {
    m_strDetail = detail;
}

void ModuleConfigure::setParameters(const std::string& parameters) {
    m_strParameters = parameters;
}

namespace {

// A module without a model or code (or with an empty one) serves every machine.
bool attributeMatches(const TiXmlElement* module, const char* name, const std::string& wanted) {
    const char* value = module->Attribute(name);
    return value == nullptr || *value == '\0' || wanted == value;
}

std::string attributeText(const TiXmlElement* module, const char* name) {
    const char* value = module->Attribute(name);
    return value != nullptr ? value : "";
}

} // namespace

bool ModuleConfigureParser::parse(const std::string& path, const std::string& hardwareModel,
                                  const std::string& hardwareCode,
                                  std::vector<ModuleConfigure>& modules) {
    // TinyXML sizes its buffer by seeking to the end, which for a folder is
    // no size at all: only regular files are documents.
    struct stat st;
    if (::stat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode))
        return false;
    TiXmlDocument doc;
    if (!doc.LoadFile(path.c_str(), TIXML_ENCODING_UTF8))
        return false;
    const TiXmlElement* root = doc.RootElement();
    if (root == nullptr)
        return false;
    for (const TiXmlElement* module = root->FirstChildElement("module"); module != nullptr;
         module = module->NextSiblingElement("module")) {
        if (!attributeMatches(module, "hardware_model", hardwareModel) ||
            !attributeMatches(module, "hardware_code", hardwareCode))
            continue;
        ModuleConfigure config;
        config.setModuleId(static_cast<unsigned int>(
            std::strtoul(attributeText(module, "id").c_str(), nullptr, 10)));
        config.setDetail(attributeText(module, "detail"));
        config.setParameters(attributeText(module, "parameters"));
        modules.push_back(config);
    }
    return true;
}
