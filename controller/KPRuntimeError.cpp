#include "controller/KPRuntimeError.h"

KPRuntimeError::KPRuntimeError(const std::string& text) : m_strText(text) {}

KPRuntimeError::KPRuntimeError(const KPRuntimeError& other) = default;

KPRuntimeError& KPRuntimeError::operator=(const KPRuntimeError& other) = default;

// Defined here so that the type's identity lives in the library alone.
KPRuntimeError::~KPRuntimeError() = default;

const char* KPRuntimeError::what() const noexcept {
    return m_strText.c_str();
}
