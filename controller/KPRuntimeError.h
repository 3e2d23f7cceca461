// The exception of the controller's counted pointers: what() is the text it
// was made with.
#pragma once

#include <exception>
#include <string>

#include "diag/SensorDefs.h"

// Exported so that a host catching it by type sees the library's type.
class SENSOR_API KPRuntimeError : public std::exception {
public:
    explicit KPRuntimeError(const std::string& text);
    KPRuntimeError(const KPRuntimeError& other);
    KPRuntimeError& operator=(const KPRuntimeError& other);
    ~KPRuntimeError() override;

    const char* what() const noexcept override;

private:
    std::string m_strText;
};
