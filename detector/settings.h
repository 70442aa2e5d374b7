/// The two stores of named values.
#pragma once

#include <boost/any.hpp>
#include <map>
#include <string>

namespace plate_recognition {

/// Names bound to members of a detector: each value holds a bool*, an int* or a std::string*. Not locked.
class BoundSettings {
  public:
    /// `member` is not owned and must outlive the table.
    template <class Value>
    void Bind(const char* name, Value* member) {
        members_[name] = member;
    }

    /// Writes the value into the bound member; false, and nothing is changed, when the name is unknown or bound to a
    /// member of another type.
    template <class Value>
    bool Write(const std::string& name, const Value& value) {
        const auto found = members_.find(name);
        if (found == members_.end()) {
            return false;
        }
        try {
            *boost::any_cast<Value*>(found->second) = value;
        } catch (const boost::bad_any_cast&) {
            return false;
        }
        return true;
    }

  private:
    std::map<std::string, boost::any> members_;
};

/// Free values under any name: std::string, double, int or bool. Not locked.
class FreeValues {
  public:
    /// Replaces an earlier value of the name, whatever its type.
    template <class Value>
    void Write(const std::string& name, const Value& value) {
        values_[name] = value;
    }

    /// The value, or null when there is none or it is of another type. Valid until it is replaced or emptied.
    template <class Value>
    const Value* Read(const std::string& name) const {
        const auto found = values_.find(name);
        return found == values_.end() ? nullptr : boost::any_cast<Value>(&found->second);
    }

    void Clear() { values_.clear(); }
    bool IsEmpty() const { return values_.empty(); }

  private:
    std::map<std::string, boost::any> values_;
};

}  // namespace plate_recognition
