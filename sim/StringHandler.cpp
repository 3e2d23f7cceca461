// The simulated host's string helpers.
#include "host/StringHandler.h"

void StringHandler::split(const std::string& text, const std::string& delimiter,
                          std::vector<std::string>& out) {
    out.clear();
    if (text.empty())
        return;
    if (delimiter.empty()) {
        out.push_back(text);
        return;
    }
    std::string::size_type start = 0;
    for (;;) {
        const std::string::size_type at = text.find(delimiter, start);
        if (at == std::string::npos) {
            out.push_back(text.substr(start));
            return;
        }
        out.push_back(text.substr(start, at - start));
        start = at + delimiter.size();
    }
}
