#include "platform/windows/automation.h"

#include <algorithm>
#include <array>

namespace {

// Numbers as texts, whatever the user's regional setting.
constexpr LCID kNeutralLocale = 0x007F;

// Some objects take the flags of both kinds of members only, as scripts give them.
bool Invoke(IDispatch& object, DISPID member, std::vector<Variant> arguments, Variant& result) {
  // The last argument comes first.
  std::vector<VARIANT> reversed;
  for (auto argument = arguments.rbegin(); argument != arguments.rend(); ++argument) {
    reversed.push_back(argument->Raw());
  }
  DISPPARAMS parameters{reversed.data(), nullptr, static_cast<UINT>(reversed.size()), 0};
  return SUCCEEDED(object.Invoke(member, IID_NULL, kNeutralLocale, DISPATCH_METHOD | DISPATCH_PROPERTYGET, &parameters,
                                 &result.Raw(), /*exception*/ nullptr, /*bad argument*/ nullptr));
}

bool FindMember(IDispatch& object, std::wstring name, DISPID& member) {
  LPOLESTR names = name.data();
  return SUCCEEDED(object.GetIDsOfNames(IID_NULL, &names, 1, kNeutralLocale, &member));
}

}  // namespace

Variant::Variant(const std::wstring& text) {
  VariantInit(&value_);
  value_.vt = VT_BSTR;
  value_.bstrVal = SysAllocStringLen(text.data(), static_cast<UINT>(text.size()));
}

Variant::Variant(LONG number) {
  VariantInit(&value_);
  value_.vt = VT_I4;
  value_.lVal = number;
}

std::string Variant::Text() const {
  Variant text;
  if (value_.vt == VT_NULL ||
      FAILED(VariantChangeTypeEx(&text.value_, const_cast<VARIANT*>(&value_), kNeutralLocale, 0, VT_BSTR))) {
    return "";  // the value is read only, whatever the declaration says
  }
  return AnsiText({text.value_.bstrVal, SysStringLen(text.value_.bstrVal)});
}

bool CallMember(IDispatch& object, const std::wstring& name, std::vector<Variant> arguments, Variant& result) {
  DISPID member = 0;
  return FindMember(object, name, member) && Invoke(object, member, std::move(arguments), result);
}

std::vector<ComPointer<IDispatch>> ObjectsOf(IDispatch& collection) {
  std::vector<ComPointer<IDispatch>> objects;
  Variant result;
  if (!Invoke(collection, DISPID_NEWENUM, {}, result)) {
    return objects;
  }
  const auto walk = result.Object<IEnumVARIANT>(IID_IEnumVARIANT);
  Variant item;
  while (walk && walk->Next(1, &item.Raw(), nullptr) == S_OK) {
    if (auto object = item.Object<IDispatch>(IID_IDispatch)) {
      objects.push_back(std::move(object));
    }
    VariantClear(&item.Raw());
  }
  return objects;
}

std::wstring WideText(const std::string& text) {
  const auto bytes = static_cast<int>(text.size());
  std::wstring wide(static_cast<std::size_t>(MultiByteToWideChar(CP_ACP, 0, text.data(), bytes, nullptr, 0)), L'\0');
  MultiByteToWideChar(CP_ACP, 0, text.data(), bytes, wide.data(), static_cast<int>(wide.size()));
  return wide;
}

std::string AnsiText(const std::wstring& text) {
  const auto characters = static_cast<int>(text.size());
  const int bytes = WideCharToMultiByte(CP_ACP, 0, text.data(), characters, nullptr, 0, nullptr, nullptr);
  std::string ansi(static_cast<std::size_t>(bytes), '\0');
  WideCharToMultiByte(CP_ACP, 0, text.data(), characters, ansi.data(), bytes, nullptr, nullptr);
  return ansi;
}
