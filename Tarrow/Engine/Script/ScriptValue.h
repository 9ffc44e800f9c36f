#pragma once

#include <JavaScriptCore/JavaScript.h>

#include <initializer_list>
#include <optional>
#include <string>

namespace kelvo::script {

class ScriptContext;
class ScriptString;

/// A non-owning view of one script value, used within a single host call on the main thread.
/// While its context is suspended (a call ran out of time) every operation that could run script
/// code is skipped and yields absent.
/// The collector scans the stack, so views held in locals stay alive; anything kept across
/// calls must be a `ProtectedValue`. A default-constructed view is "absent".
class Value {
public:
    Value() = default;
    Value(ScriptContext& context, JSValueRef value) : context_(&context), value_(value) {}

    JSValueRef ref() const { return value_; }
    ScriptContext* context() const { return context_; }

    /// Something other than absent, undefined or null.
    bool isPresent() const;
    bool isObject() const;
    bool isString() const;
    bool isNumber() const;

    /// The property, or absent when this is not an object or the read threw.
    Value get(const ScriptString& key) const;
    Value at(unsigned index) const;
    void set(const ScriptString& key, const Value& value) const;

    /// ToNumber of the value (NaN when absent).
    double toNumber() const;
    /// ToBoolean of the value (false when absent).
    bool toBoolean() const;
    /// ToString of the value; nullopt when absent or the conversion threw.
    std::optional<std::string> toString() const;

    /// The property as a double: 0 when missing, undefined or null; non-finite passes through.
    double number(const ScriptString& key) const;
    /// The property as a boolean: false when missing, undefined or null.
    bool boolean(const ScriptString& key) const;

    /// Calls the named method with this as receiver; absent when it is not a function or threw.
    Value call(const ScriptString& method, std::initializer_list<Value> arguments = {}) const;
    /// Calls this value as a function with the given receiver.
    Value callAsFunction(const Value& self, std::initializer_list<Value> arguments = {}) const;
    /// Constructs with no arguments; absent when this is not a constructor or it threw.
    Value construct() const;

    /// "the method called with one string argument" as a finite number, else 0.
    double callNumber(const ScriptString& method, const Value& argument) const;

private:
    JSObjectRef object() const;
    /// The object, unless the context is suspended: reads, writes and calls may run script code.
    JSObjectRef runnableObject() const;

    ScriptContext* context_ = nullptr;
    JSValueRef value_ = nullptr;
};

/// An owning, GC-protected script value, kept across host calls. Must not outlive its context.
class ProtectedValue {
public:
    ProtectedValue() = default;
    explicit ProtectedValue(const Value& value);
    ~ProtectedValue();
    ProtectedValue(const ProtectedValue&) = delete;
    ProtectedValue& operator=(const ProtectedValue&) = delete;
    ProtectedValue(ProtectedValue&& other) noexcept;
    ProtectedValue& operator=(ProtectedValue&& other) noexcept;

    Value view() const { return context_ ? Value(*context_, value_) : Value(); }
    bool isPresent() const { return view().isPresent(); }
    void reset();

private:
    ScriptContext* context_ = nullptr;
    JSValueRef value_ = nullptr;
};

} // namespace kelvo::script
