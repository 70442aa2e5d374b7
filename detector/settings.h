/// The two stores of named values: settings bound to members, and values of a single call.
#pragma once

#include <boost/any.hpp>
#include <map>
#include <string>

namespace plate_recognition {

/// Setting names bound to members of a detector of type bool, int or std::string. Not locked: the caller serialises.
class BoundSettings {
  public:
    /// `member` is not owned and must outlive the table.
    template <class Value>
    void Bind(const char* name, Value* member) {
        members_[name] = member;
    }

    /// Writes the value to the bound member. Returns false, and changes nothing, when the name is unknown or bound to a
    /// member of another type. May throw std::bad_alloc.
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

/// Values of type std::string, double, int or bool under any name. Not locked: the caller serialises.
class FreeValues {
  public:
    /// Stores a value; an earlier value of that name is replaced, regardless of its type. May throw std::bad_alloc.
    template <class Value>
    void Write(const std::string& name, const Value& value) {
        values_[name] = value;
    }

    /// Returns the value, or null when there is none or it has another type. Valid until it is replaced or cleared.
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
