#include "private_text.h"

#include <algorithm>

namespace zoctl {

namespace {

char Folded(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

// Bytes of other letters than ASCII count as letters.
bool IsPartOfWord(char c) {
    const char folded = Folded(c);
    return (folded >= 'a' && folded <= 'z') || (c >= '0' && c <= '9') || c == '_' ||
           static_cast<unsigned char>(c) > 127;
}

// At the end of the text its terminator follows, which is no part of a word.
bool IsWholeWord(const std::string& text, std::size_t at, std::size_t size) {
    return (at == 0 || !IsPartOfWord(text[at - 1])) && !IsPartOfWord(text[at + size]);
}

std::string Replaced(const std::string& text, const std::string& name, const char* by) {
    std::string out;
    if (name.empty()) return text;
    const auto same = [](char one, char other) { return Folded(one) == Folded(other); };
    auto from = text.begin();
    for (auto scan = from; (scan = std::search(scan, text.end(), name.begin(), name.end(), same)) != text.end();) {
        const auto end = scan + static_cast<std::ptrdiff_t>(name.size());
        if (IsWholeWord(text, static_cast<std::size_t>(scan - text.begin()), name.size())) {
            out.append(from, scan).append(by);
            from = end;
        }
        scan = end;
    }
    return out.append(from, text.end());
}

}  // namespace

bool IsSystemAccount(const std::string& user) {
    return user == "SYSTEM" || user == "LOCAL SERVICE" || user == "NETWORK SERVICE";
}

std::string WithoutNames(std::string text, const PrivateNames& names) {
    for (const std::string& profile : names.profiles)
        text = Replaced(text, profile, "%USERPROFILE%");
    for (const std::string& user : names.users)
        text = Replaced(text, user, "%USERNAME%");
    return text;
}

void RemoveNames(Json& document, const PrivateNames& names) {
    if (document.is_string()) {
        document = WithoutNames(document.get<std::string>(), names);
    } else if (document.is_structured()) {
        for (Json& part : document)
            RemoveNames(part, names);
    }
}

}  // namespace zoctl
