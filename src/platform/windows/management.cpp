#include "platform/windows/management.h"

namespace {

constexpr const wchar_t* kService = L"winmgmts:{impersonationLevel=impersonate}!\\\\.\\root\\cimv2";
constexpr const wchar_t* kShell = L"WScript.Shell";
constexpr LONG kReturnAtOnceForwardOnly = 48;  // wbemFlagReturnImmediately and wbemFlagForwardOnly

}  // namespace

bool Management::Bind() {
  calls_.CoInitialize(nullptr);  // where that fails, so does the next call
  service_ = {};
  return SUCCEEDED(calls_.CoGetObject(kService, nullptr, IID_IDispatch, service_.UntypedPlace())) && service_;
}

std::vector<std::vector<std::string>> Management::Query(const std::string& query, bool forward_only,
                                                        const std::vector<std::string>& properties) {
  std::vector<std::vector<std::string>> rows;
  std::vector<Variant> arguments;
  arguments.emplace_back(WideText(query));
  if (forward_only) {
    arguments.emplace_back(std::wstring(L"WQL"));
    arguments.emplace_back(kReturnAtOnceForwardOnly);
  }
  Variant result;
  if (!service_ || !CallMember(*service_, L"ExecQuery", std::move(arguments), result)) {
    return rows;
  }
  const auto found = result.Object<IDispatch>(IID_IDispatch);
  if (!found) {
    return rows;
  }
  for (const ComPointer<IDispatch>& object : ObjectsOf(*found)) {
    std::vector<std::string>& row = rows.emplace_back();
    for (const std::string& property : properties) {
      Variant value;
      row.push_back(CallMember(*object, WideText(property), {}, value) ? value.Text() : "");
    }
  }
  return rows;
}

bool Management::ReadRegistry(const std::string& path, std::string& value) {
  CLSID shell{};
  if (!shell_ && SUCCEEDED(calls_.CLSIDFromProgID(kShell, &shell))) {
    calls_.CoCreateInstance(shell, nullptr, CLSCTX_SERVER, IID_IDispatch, shell_.UntypedPlace());
  }
  std::vector<Variant> arguments;
  arguments.emplace_back(WideText(path));
  Variant result;
  if (!shell_ || !CallMember(*shell_, L"RegRead", std::move(arguments), result)) {
    return false;
  }
  value = result.Text();
  return true;
}
