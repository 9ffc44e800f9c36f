#include "Engine/Script/ScriptValue.h"

#include "Engine/Script/ScriptContext.h"
#include "Engine/Script/ScriptString.h"

#include <cmath>
#include <vector>

namespace kelvo::script {

bool Value::isPresent() const {
    if (!context_ || !value_)
        return false;
    const JSType type = JSValueGetType(context_->get(), value_);
    return type != kJSTypeUndefined && type != kJSTypeNull;
}

bool Value::isObject() const {
    return context_ && value_ && JSValueIsObject(context_->get(), value_);
}

bool Value::isString() const {
    return context_ && value_ && JSValueIsString(context_->get(), value_);
}

bool Value::isNumber() const {
    return context_ && value_ && JSValueIsNumber(context_->get(), value_);
}

JSObjectRef Value::object() const {
    return isObject() ? JSValueToObject(context_->get(), value_, nullptr) : nullptr;
}

JSObjectRef Value::runnableObject() const {
    return context_ && !context_->isSuspended() ? object() : nullptr;
}

Value Value::get(const ScriptString& key) const {
    const JSObjectRef self = runnableObject();
    if (!self)
        return {};
    JSValueRef exception = nullptr;
    const JSValueRef result = JSObjectGetProperty(context_->get(), self, key.get(), &exception);
    if (exception) {
        context_->report(exception);
        return {};
    }
    return Value(*context_, result);
}

Value Value::at(unsigned index) const {
    const JSObjectRef self = runnableObject();
    if (!self)
        return {};
    JSValueRef exception = nullptr;
    const JSValueRef result = JSObjectGetPropertyAtIndex(context_->get(), self, index, &exception);
    if (exception) {
        context_->report(exception);
        return {};
    }
    return Value(*context_, result);
}

void Value::set(const ScriptString& key, const Value& value) const {
    const JSObjectRef self = runnableObject();
    if (!self)
        return;
    JSValueRef exception = nullptr;
    const JSValueRef stored = value.ref() ? value.ref() : JSValueMakeUndefined(context_->get());
    JSObjectSetProperty(context_->get(), self, key.get(), stored, kJSPropertyAttributeNone,
                        &exception);
    context_->report(exception);
}

double Value::toNumber() const {
    if (!context_ || !value_ || context_->isSuspended())
        return std::nan("");
    JSValueRef exception = nullptr;
    const double result = JSValueToNumber(context_->get(), value_, &exception);
    if (exception) {
        context_->report(exception);
        return std::nan("");
    }
    return result;
}

bool Value::toBoolean() const {
    return context_ && value_ && JSValueToBoolean(context_->get(), value_);
}

std::optional<std::string> Value::toString() const {
    if (!context_ || !value_ || context_->isSuspended())
        return std::nullopt;
    JSValueRef exception = nullptr;
    JSStringRef string = JSValueToStringCopy(context_->get(), value_, &exception);
    if (exception) {
        context_->report(exception);
        return std::nullopt;
    }
    return string ? std::optional(ScriptString(string).toUtf8()) : std::nullopt;
}

double Value::number(const ScriptString& key) const {
    const Value property = get(key);
    return property.isPresent() ? property.toNumber() : 0.0;
}

bool Value::boolean(const ScriptString& key) const {
    const Value property = get(key);
    return property.isPresent() && property.toBoolean();
}

Value Value::callAsFunction(const Value& self, std::initializer_list<Value> arguments) const {
    const JSObjectRef function = runnableObject();
    if (!function || !JSObjectIsFunction(context_->get(), function))
        return {};
    JSValueRef argv[8];
    size_t argc = 0;
    for (const Value& argument : arguments) {
        if (argc == std::size(argv))
            break;
        argv[argc++] = argument.ref() ? argument.ref() : JSValueMakeUndefined(context_->get());
    }
    JSValueRef exception = nullptr;
    const JSValueRef result =
        JSObjectCallAsFunction(context_->get(), function, self.object(), argc, argv, &exception);
    if (exception) {
        context_->report(exception);
        return {};
    }
    return Value(*context_, result);
}

Value Value::call(const ScriptString& method, std::initializer_list<Value> arguments) const {
    return get(method).callAsFunction(*this, arguments);
}

Value Value::construct() const {
    const JSObjectRef constructor = runnableObject();
    if (!constructor || !JSObjectIsConstructor(context_->get(), constructor))
        return {};
    JSValueRef exception = nullptr;
    const JSObjectRef result =
        JSObjectCallAsConstructor(context_->get(), constructor, 0, nullptr, &exception);
    if (exception) {
        context_->report(exception);
        return {};
    }
    return result ? Value(*context_, result) : Value();
}

double Value::callNumber(const ScriptString& method, const Value& argument) const {
    const Value result = call(method, {argument});
    if (!result.isPresent())
        return 0.0;
    const double number = result.toNumber();
    return std::isfinite(number) ? number : 0.0;
}

ProtectedValue::ProtectedValue(const Value& value)
    : context_(value.context()), value_(value.ref()) {
    if (context_ && value_)
        JSValueProtect(context_->get(), value_);
    else
        context_ = nullptr, value_ = nullptr;
}

ProtectedValue::~ProtectedValue() {
    reset();
}

ProtectedValue::ProtectedValue(ProtectedValue&& other) noexcept
    : context_(other.context_), value_(other.value_) {
    other.context_ = nullptr;
    other.value_ = nullptr;
}

ProtectedValue& ProtectedValue::operator=(ProtectedValue&& other) noexcept {
    if (this != &other) {
        reset();
        context_ = other.context_;
        value_ = other.value_;
        other.context_ = nullptr;
        other.value_ = nullptr;
    }
    return *this;
}

void ProtectedValue::reset() {
    if (context_ && value_)
        JSValueUnprotect(context_->get(), value_);
    context_ = nullptr;
    value_ = nullptr;
}

} // namespace kelvo::script
