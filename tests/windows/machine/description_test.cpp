// What the system says of itself: the late-bound calls of management service and shell, and the same services live.
#include <map>

#include "host/host_description.h"
#include "windows/machine/machine_fixture.h"

namespace {

// An object with members by name: properties and methods, whose calls are recorded with their arguments. It lives on
// the test's stack, whatever is counted.
class FakeObject : public IDispatch {
 public:
  std::map<std::wstring, VARIANT> members;
  std::vector<FakeObject*> items;  // of a collection

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID id, void** object) override {
    const bool known = IsEqualIID(id, IID_IUnknown) || IsEqualIID(id, IID_IDispatch);
    *object = known ? this : nullptr;
    return known ? S_OK : E_NOINTERFACE;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE GetTypeInfoCount(UINT* /*count*/) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE GetTypeInfo(UINT /*info*/, LCID /*locale*/, ITypeInfo** /*type*/) override {
    return E_NOTIMPL;
  }
  HRESULT STDMETHODCALLTYPE GetIDsOfNames(REFIID /*null*/, LPOLESTR* names, UINT /*count*/, LCID /*locale*/,
                                          DISPID* ids) override {
    const auto found = members.find(*names);
    *ids = static_cast<DISPID>(std::distance(members.begin(), found)) + 1;
    return found == members.end() ? DISP_E_UNKNOWNNAME : S_OK;
  }
  HRESULT STDMETHODCALLTYPE Invoke(DISPID member, REFIID /*null*/, LCID /*locale*/, WORD kind, DISPPARAMS* parameters,
                                   VARIANT* result, EXCEPINFO* /*exception*/, UINT* /*argument*/) override;
};

class FakeWalk : public IEnumVARIANT {
 public:
  explicit FakeWalk(const std::vector<FakeObject*>& items) : items_(items) {}
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID /*id*/, void** object) override {
    *object = this;
    return S_OK;
  }
  ULONG STDMETHODCALLTYPE AddRef() override { return 1; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE Next(ULONG /*count*/, VARIANT* item, ULONG* /*fetched*/) override {
    if (at_ == items_.size()) {
      return S_FALSE;
    }
    item->vt = VT_DISPATCH;
    item->pdispVal = items_[at_++];
    return S_OK;
  }
  HRESULT STDMETHODCALLTYPE Skip(ULONG /*count*/) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Reset() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Clone(IEnumVARIANT** /*other*/) override { return E_NOTIMPL; }

 private:
  std::vector<FakeObject*> items_;
  std::size_t at_ = 0;
};

HRESULT FakeObject::Invoke(DISPID member, REFIID, LCID, WORD, DISPPARAMS* parameters, VARIANT* result, EXCEPINFO*,
                           UINT*) {
  if (member == DISPID_NEWENUM) {
    static std::unique_ptr<FakeWalk> walk;
    walk = std::make_unique<FakeWalk>(items);
    result->vt = VT_UNKNOWN;
    result->punkVal = walk.get();
    return S_OK;
  }
  const auto found = std::next(members.begin(), member - 1);
  if (parameters->cArgs > 0) {
    std::string call = AnsiText(found->first) + "(";
    for (UINT i = parameters->cArgs; i > 0; --i) {
      const VARIANT& argument = parameters->rgvarg[i - 1];
      call += argument.vt == VT_BSTR ? AnsiText(argument.bstrVal) : std::to_string(argument.lVal);
      call += i > 1 ? ", " : "";
    }
    recorder.calls.push_back(call + ")");
  }
  return VariantCopy(result, &found->second);
}

VARIANT TextValue(const wchar_t* text) {
  VARIANT value{};
  value.vt = VT_BSTR;
  value.bstrVal = SysAllocString(text);
  return value;
}
VARIANT NumberValue(LONG number) {
  VARIANT value{};
  value.vt = VT_I4;
  value.lVal = number;
  return value;
}
VARIANT NoValue() {
  VARIANT value{};
  value.vt = VT_NULL;
  return value;
}
VARIANT ObjectValue(FakeObject& object) {
  VARIANT value{};
  value.vt = VT_DISPATCH;
  value.pdispVal = &object;
  return value;
}

using Description = RecordedMachine;

TEST_F(Description, TheManagementServiceIsBoundAndAskedLate) {
  FakeObject system;
  system.members = {{L"Caption", TextValue(L" Caf\u00E9 ")},
                    {L"OperatingSystemSKU", NumberValue(1)},
                    {L"Version", TextValue(L"6.1")},
                    {L"ServicePackMajorVersion", NumberValue(1)},
                    {L"ServicePackMinorVersion", NumberValue(0)},
                    {L"OtherTypeDescription", NoValue()},
                    {L"OSArchitecture", TextValue(L"64-bit")},
                    {L"SerialNumber", TextValue(L"S1")}};
  FakeObject set;
  set.items = {&system};
  FakeObject service;
  service.members = {{L"ExecQuery", ObjectValue(set)}};
  recorder.management = &service;
  DescribeHost();
  EXPECT_EQ(TakeCalls(), (Calls{
                             "CoInitialize(null)",
                             "CoGetObject(Lwinmgmts:{impersonationLevel=impersonate}!\\\\.\\root\\cimv2, null)",
                             "ExecQuery(Select * from Win32_ComputerSystemProduct, WQL, 48)",
                             "ExecQuery(SELECT * FROM Win32_BaseBoard, WQL, 48)",
                             "ExecQuery(Select * from Win32_SystemEnclosure)",
                             "ExecQuery(Select * from Win32_OperatingSystem)",
                         }));
  EXPECT_EQ(HostOsText, "Caf\xE9 (6.1) SP1.0 64-bit");
  EXPECT_EQ(HostPcText, "  ( S1  S1)");
}

TEST_F(Description, WithoutTheServiceTheShellReadsTheRegistry) {
  FakeObject shell;
  shell.members = {{L"RegRead", NumberValue(0x200)}};
  recorder.shell = &shell;
  DescribeHost();
  const Calls calls = TakeCalls();
  ASSERT_EQ(calls.size(), 13U);
  EXPECT_EQ(Calls(calls.begin() + 2, calls.begin() + 5),
            (Calls{"CLSIDFromProgID(LWScript.Shell)", "CoCreateInstance(null, 15)",
                   "RegRead(HKEY_LOCAL_MACHINE\\HARDWARE\\DESCRIPTION\\System\\BIOS\\SystemManufacturer)"}));
  const Calls question{"GetModuleHandleA(kernel32)", "GetProcAddress(B4, IsWow64Process)", "IsWow64Process(FFFFFFFF)"};
  EXPECT_NE(std::search(calls.begin(), calls.end(), question.begin(), question.end()), calls.end());
  EXPECT_EQ(HostPcText, "512 512 512 512");
  EXPECT_EQ(HostOsText, "512 (SP2) 64-bit");
}

TEST_F(Description, WithoutEitherTheTextsAreEmptyShapes) {
  recorder.failing = {"GetProcAddress"};
  DescribeHost();
  EXPECT_EQ(HostPcText, "   ");
  EXPECT_EQ(HostOsText, " (RTM) 32-bit");
}

// --- With the system's own calls -----------------------------------------------------------------------------------

TEST(LiveMachine, DescribesThisSystem) {
  WindowsMachine machine({});
  ASSERT_TRUE(machine.BindManagement());
  const auto rows =
      machine.QueryManagement("Select * from Win32_OperatingSystem", false, {"Caption", "NoSuchProperty"});
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_NE(rows[0][0].find("Windows"), std::string::npos) << rows[0][0];
  EXPECT_EQ(rows[0][1], "");
  EXPECT_TRUE(machine.QueryManagement("Select * from NoSuchClass", true, {"Name"}).empty());
  std::string value;
  EXPECT_TRUE(
      machine.ReadRegistry("HKEY_LOCAL_MACHINE\\SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\ProductName", value));
  EXPECT_NE(value.find("Windows"), std::string::npos) << value;
  EXPECT_FALSE(machine.ReadRegistry("HKEY_LOCAL_MACHINE\\SOFTWARE\\NoSuchValue", value));
  EXPECT_FALSE(machine.IsWow64());
  EXPECT_NE(machine.Version().platform, 0U);
}

TEST(LiveMachine, RunsOtherPrograms) {
  WindowsMachine machine({});
  const Handle process = machine.StartProcess("cmd /c exit 300");
  ASSERT_GT(process, 0);
  std::uint32_t code = kStillActive;
  while (code == kStillActive) {
    ASSERT_TRUE(machine.QueryExitCode(process, code));
    machine.Wait(10);
  }
  EXPECT_EQ(code, 300U);
  EXPECT_TRUE(machine.Close(process));
  EXPECT_FALSE(machine.Close(process));
  EXPECT_EQ(machine.StartProcess("no_such_program.exe"), kInvalidHandle);
  EXPECT_EQ(machine.LastError(), kErrorFileNotFound);
}

TEST(LiveMachine, KnowsFilesDrivesAndErrors) {
  WindowsMachine machine({});
  EXPECT_TRUE(machine.FindFile("C:\\windows"));
  EXPECT_FALSE(machine.FindFile("C:\\no such file"));
  EXPECT_EQ(machine.OpenFile("C:\\windows", {kAccessRead, kShareRead, kOpenExisting, 0}), kInvalidHandle);
  EXPECT_EQ(machine.OpenFile("\\\\.\\C:", {kAccessRead, kShareReadWrite, kOpenExisting, 0}), kInvalidHandle);
  EXPECT_EQ(machine.DriveType("C:\\"), kDriveTypeFixed);
  EXPECT_EQ(machine.DriveType("X:\\"), kDriveTypeNoRoot);
  const MessageMode mode{kMessageFromSystem, 255};
  EXPECT_EQ(machine.ErrorMessage(2, mode).substr(0, 5), "File ");
  EXPECT_EQ(machine.ErrorMessage(0x7FFFFFFF, mode), "");
  EXPECT_EQ(machine.ErrorMessage(2, {kMessageFromSystem, 5}), "");
  std::string name;
  const Handle search = machine.FirstVolume(name);
  ASSERT_NE(search, kInvalidHandle);
  EXPECT_EQ(name.substr(0, 11), "\\\\?\\Volume{");
  EXPECT_EQ(name.back(), '\\');
  machine.EndVolumes(search);
  std::uint64_t bytes = 0;
  EXPECT_TRUE(machine.QueryVolumeSize("C:", bytes));
  EXPECT_GT(bytes, 0U);
}

}  // namespace
