// Late-bound calls of COM objects: methods and properties by name.
#pragma once

#include "platform/windows/system_calls.h"
// Behind windows.h, whose names it needs.
#include <oleauto.h>

#include <string>
#include <utility>
#include <vector>

// Owns a reference to an interface of an object; null at first.
template <typename Interface>
class ComPointer {
 public:
  ComPointer() = default;
  ComPointer(ComPointer&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  ComPointer& operator=(ComPointer&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ComPointer(const ComPointer&) = delete;
  ComPointer& operator=(const ComPointer&) = delete;
  ~ComPointer() {
    if (object_ != nullptr) {
      object_->Release();
    }
  }

  explicit operator bool() const { return object_ != nullptr; }
  Interface* operator->() const { return object_; }
  Interface& operator*() const { return *object_; }
  // Where a call that hands out a reference puts it; only while there is none.
  Interface** Place() { return &object_; }
  void** UntypedPlace() { return reinterpret_cast<void**>(&object_); }

 private:
  Interface* object_ = nullptr;
};

// Owns the value of a variant.
class Variant {
 public:
  Variant() { VariantInit(&value_); }
  explicit Variant(const std::wstring& text);
  explicit Variant(LONG number);
  Variant(Variant&& other) noexcept : value_(other.value_) { VariantInit(&other.value_); }
  Variant(const Variant&) = delete;
  Variant& operator=(const Variant&) = delete;
  Variant& operator=(Variant&&) = delete;
  ~Variant() { VariantClear(&value_); }

  VARIANT& Raw() { return value_; }
  // As text in the ANSI code page, numbers in decimal; empty for no value, and for what has no text, such as an array.
  std::string Text() const;
  // The object behind it, by the interface that is asked for; null where it is none or doesn't have that.
  template <typename Interface>
  ComPointer<Interface> Object(const IID& interface_id) const {
    ComPointer<Interface> object;
    if ((value_.vt == VT_DISPATCH || value_.vt == VT_UNKNOWN) && value_.punkVal != nullptr) {
      value_.punkVal->QueryInterface(interface_id, object.UntypedPlace());
    }
    return object;
  }

 private:
  VARIANT value_;
};

// Calls a method, or reads a property, which takes no arguments. False where the object has no such member, or the call
// fails.
bool CallMember(IDispatch& object, const std::wstring& name, std::vector<Variant> arguments, Variant& result);
// The objects of a collection, in its order, as far as they can be had.
std::vector<ComPointer<IDispatch>> ObjectsOf(IDispatch& collection);

// Text of the ANSI code page and of UTF-16.
std::wstring WideText(const std::string& text);
std::string AnsiText(const std::wstring& text);
