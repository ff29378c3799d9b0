#include "cinedng/KSDictionary.h"

namespace cinedng {

void KSDictionary::setObject(const std::string& key, KSValuePtr value) {
    if (!value) {
        removeObjectForKey(key);
        return;
    }
    auto it = index_.find(key);
    if (it != index_.end()) {
        entries_[it->second].second = std::move(value);
        return;
    }
    index_.emplace(key, entries_.size());
    entries_.emplace_back(key, std::move(value));
}

void KSDictionary::removeObjectForKey(const std::string& key) {
    auto it = index_.find(key);
    if (it == index_.end()) return;
    const size_t pos = it->second;
    index_.erase(it);
    entries_.erase(entries_.begin() + static_cast<std::ptrdiff_t>(pos));
    for (auto& [k, i] : index_)
        if (i > pos) --i;
}

KSValuePtr KSDictionary::objectForKey(const std::string& key) const {
    auto it = index_.find(key);
    return it == index_.end() ? nullptr : entries_[it->second].second;
}

std::vector<std::string> KSDictionary::allKeys() const {
    std::vector<std::string> keys;
    keys.reserve(entries_.size());
    for (const auto& e : entries_) keys.push_back(e.first);
    return keys;
}

std::string KSDictionary::description() const {
    std::string s = "{\n";
    for (const auto& [key, value] : entries_) {
        s += "    ";
        s += key;
        s += " = ";
        s += value->descriptionWithIndent(1);
        s += ";\n";
    }
    return s + "}";
}

}  // namespace cinedng
