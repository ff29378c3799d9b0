#pragma once
// The host's mutable dictionary: string keys mapped to shared values, kept in insertion order.
// Setting a key that is already present replaces its value but keeps the key's first position.
// description() prints "{\n    key = value;\n    ...\n}" with nested arrays indented.
#include <memory>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "cinedng/KSValue.h"

namespace cinedng {

class KSDictionary {
public:
    static std::shared_ptr<KSDictionary> dictionary() { return std::make_shared<KSDictionary>(); }

    // A null value removes the key (the dictionary never holds "none").
    void setObject(const std::string& key, KSValuePtr value);
    void removeObjectForKey(const std::string& key);
    // nullptr when the key is absent.
    KSValuePtr objectForKey(const std::string& key) const;
    bool containsKey(const std::string& key) const { return index_.count(key) != 0; }

    size_t count() const { return entries_.size(); }
    // Keys in insertion order.
    std::vector<std::string> allKeys() const;
    const std::vector<std::pair<std::string, KSValuePtr>>& entries() const { return entries_; }

    std::string description() const;

private:
    std::vector<std::pair<std::string, KSValuePtr>> entries_;
    std::unordered_map<std::string, size_t> index_;
};

}  // namespace cinedng
