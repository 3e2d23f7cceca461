// The host's string helpers.
#pragma once

#include <string>
#include <vector>

class StringHandler {
public:
    // Splits text at every occurrence of delimiter into out (cleared first).
    // Empty fields are kept; an empty text gives no field.
    static void split(const std::string& text, const std::string& delimiter,
                      std::vector<std::string>& out);
};
