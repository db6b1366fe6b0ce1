#pragma once
// The persistent key-value store behind the preferences. It holds booleans, strings and string
// arrays per key and tells a missing key from a present one. Readers never fail: a value of the
// wrong kind reads as "not that kind".

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <variant>
#include <vector>

namespace lorvane {

class KeyValueStore {
public:
    using StringArray = std::vector<std::string>;
    using Value = std::variant<bool, double, std::string, StringArray>;

    virtual ~KeyValueStore() = default;

    // The stored object, or nothing when the key is missing.
    virtual std::optional<Value> object(const std::string& key) const = 0;
    // The stored value read as a string array, or nothing when it is missing or of another kind.
    virtual std::optional<StringArray> stringArray(const std::string& key) const;
    // The stored value read as a string, or nothing when it is missing or of another kind.
    virtual std::optional<std::string> string(const std::string& key) const;
    // The store's own boolean reading: numbers are true when non-zero; strings when they spell an
    // affirmative word (YES, true, ...) or a non-zero number; anything else (and a missing key) false.
    virtual bool boolean(const std::string& key) const;

    virtual void setBool(const std::string& key, bool value) = 0;
    virtual void setString(const std::string& key, const std::string& value) = 0;
    virtual void setStringArray(const std::string& key, const StringArray& value) = 0;

    // Why changes cannot be saved at the moment (values are then kept in memory and saved later), or
    // nothing while they can. saveProblemDidChange is called after the answer changed.
    virtual std::optional<std::string> saveProblem() const { return std::nullopt; }
    std::function<void()> saveProblemDidChange;
};

// The boolean reading of a stored string: leading blanks, a sign and leading zeros are skipped,
// then Y, y, T, t or a digit 1-9 mean true.
bool affirmativeString(const std::string& text);

// An in-memory store, for tests and for running without a writable settings file.
class MemoryKeyValueStore : public KeyValueStore {
public:
    std::optional<Value> object(const std::string& key) const override;
    void setBool(const std::string& key, bool value) override { put(key, value); }
    void setString(const std::string& key, const std::string& value) override { put(key, value); }
    void setStringArray(const std::string& key, const StringArray& value) override { put(key, value); }
    void setNumber(const std::string& key, double value) { put(key, value); }
    void remove(const std::string& key) { values_.erase(key); }
    std::size_t writeCount() const { return writes_; }

private:
    void put(const std::string& key, Value value) {
        values_[key] = std::move(value);
        ++writes_;
    }
    std::map<std::string, Value> values_;
    std::size_t writes_ = 0;
};

}  // namespace lorvane
