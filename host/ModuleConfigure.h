// The host's configuration of one sensor module.
#pragma once

#include <string>
#include <vector>

class ModuleConfigure {
public:
    ModuleConfigure();
    unsigned int getModuleId() const;
    std::string getDetail() const; // "(name=value)(name=value)..."
    std::string getParameters() const;
    void setModuleId(unsigned int id);
    void setDetail(const std::string& detail);
    void setParameters(const std::string& parameters);

private:
    unsigned int m_nModuleId;
    std::string m_strDetail;
    std::string m_strParameters;
};

class ModuleConfigureParser {
public:
    // Appends the modules of the document that belong to the given hardware
    // model and code; false when the document cannot be read or parsed.
    static bool parse(const std::string& path, const std::string& hardwareModel,
                      const std::string& hardwareCode, std::vector<ModuleConfigure>& modules);
};
