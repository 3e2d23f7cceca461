// Helpers shared by the file, configuration and merge tests.
#pragma once

#include <functional>
#include <string>

#include <gtest/gtest.h>
#include <tinyxml.h>

namespace filestest {

// What f printed on standard output.
inline std::string captureStdout(const std::function<void()>& f) {
    testing::internal::CaptureStdout();
    f();
    return testing::internal::GetCapturedStdout();
}

// How many times needle occurs in text.
inline int countOf(const std::string& text, const std::string& needle) {
    int n = 0;
    for (std::string::size_type pos = text.find(needle); pos != std::string::npos;
         pos = text.find(needle, pos + needle.size()))
        ++n;
    return n;
}

// An assertion report of the given expression text as it reaches stdout.
inline std::string failed(const std::string& expr) {
    return expr + "   ~~~Assertion failed.\n";
}

// A document as TinyXML prints it after parsing, so that texts that differ
// only in layout compare equal.
inline std::string canonicalXml(const std::string& text) {
    TiXmlDocument doc;
    doc.Parse(text.c_str(), nullptr, TIXML_ENCODING_UTF8);
    if (doc.Error())
        return "<parse error: " + std::string(doc.ErrorDesc()) + ">";
    TiXmlPrinter printer;
    doc.Accept(&printer);
    return printer.Str();
}

} // namespace filestest
