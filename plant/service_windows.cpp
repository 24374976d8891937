#include "plant/service.h"

#include <windows.h>

#include <memory>
#include <system_error>

#include "KXData7.h"
#include "plant/plant.h"
#include "plant/stop_signal.h"

namespace kx::tool {
namespace {

constexpr DWORD kLongestStop = 60'000;  // milliseconds
// How the command line of a service of this program goes on behind the program.
constexpr const wchar_t* kRun = L"\" service run ";

struct CloseService {
  void operator()(SC_HANDLE handle) const { CloseServiceHandle(handle); }
};
using Handle = std::unique_ptr<std::remove_pointer_t<SC_HANDLE>, CloseService>;

[[noreturn]] void Throw(const std::string& name, DWORD error) {
  const std::string service = "the service \"" + name + "\"";
  switch (error) {
    case ERROR_ACCESS_DENIED:
      throw ToolError("services are for an administrator: open the console by \"Run as administrator\"");
    case ERROR_SERVICE_EXISTS:
    case ERROR_DUPLICATE_SERVICE_NAME:
      throw ToolError(service + " is there already; \"kxdata7 service remove " + name + "\" takes it away");
    case ERROR_SERVICE_MARKED_FOR_DELETE:
      throw ToolError(service + " is being removed; close the window of the services, and try again");
    case ERROR_INVALID_NAME: throw ToolError("\"" + name + "\" can be no service's name");
    case ERROR_SERVICE_DOES_NOT_EXIST: throw ToolError("there is no service \"" + name + '"');
    default: throw ToolError(service + ": " + std::system_category().message(static_cast<int>(error)));
  }
}

Handle Require(SC_HANDLE handle, const std::string& name) {
  if (handle == nullptr) Throw(name, GetLastError());
  return Handle(handle);
}

Handle Manager(const std::string& name, DWORD rights) {
  return Require(OpenSCManagerW(nullptr, nullptr, rights), name);
}

// An argument as CommandLineToArgvW reads it back.
std::wstring Quoted(const std::wstring& argument) {
  std::wstring quoted = L"\"";
  std::size_t backslashes = 0;
  for (const wchar_t c : argument) {
    if (c == L'"') quoted.append(backslashes + 1, L'\\');
    backslashes = c == L'\\' ? backslashes + 1 : 0;
    quoted += c;
  }
  return quoted.append(backslashes, L'\\') + L'"';
}

std::wstring OwnFile() {
  std::wstring file(32'768, L'\0');
  file.resize(GetModuleFileNameW(nullptr, file.data(), static_cast<DWORD>(file.size())));
  return file;
}

bool IsOwn(SC_HANDLE service) {
  std::vector<BYTE> buffer(8192);
  auto* const configuration = reinterpret_cast<QUERY_SERVICE_CONFIGW*>(buffer.data());
  DWORD needed = 0;
  return QueryServiceConfigW(service, configuration, static_cast<DWORD>(buffer.size()), &needed) != 0 &&
         std::wstring_view(configuration->lpBinaryPathName).find(kRun) != std::wstring_view::npos;
}

// What the manager's calls reach, of one service at a time.
SERVICE_STATUS_HANDLE status_handle = nullptr;
const std::function<int()>* service_work = nullptr;
std::wstring service_name;

void Tell(DWORD state, DWORD wait = 0, DWORD result = 0) {
  SERVICE_STATUS status{};
  status.dwServiceType = SERVICE_WIN32_OWN_PROCESS;
  status.dwCurrentState = state;
  status.dwControlsAccepted = state == SERVICE_RUNNING ? SERVICE_ACCEPT_STOP | SERVICE_ACCEPT_SHUTDOWN : 0;
  status.dwWin32ExitCode = result == 0 ? NO_ERROR : ERROR_SERVICE_SPECIFIC_ERROR;
  status.dwServiceSpecificExitCode = result;
  status.dwWaitHint = wait;
  SetServiceStatus(status_handle, &status);
}

DWORD WINAPI OnControl(DWORD control, DWORD, void*, void*) {
  if (control == SERVICE_CONTROL_INTERROGATE) return NO_ERROR;
  if (control != SERVICE_CONTROL_STOP && control != SERVICE_CONTROL_SHUTDOWN)
    return ERROR_CALL_NOT_IMPLEMENTED;
  Tell(SERVICE_STOP_PENDING, kLongestStop);
  StopSignal::Request();
  return NO_ERROR;
}

void WINAPI Serve(DWORD, wchar_t**) {
  status_handle = RegisterServiceCtrlHandlerExW(service_name.c_str(), OnControl, nullptr);
  if (status_handle == nullptr) return;
  Tell(SERVICE_RUNNING);
  Tell(SERVICE_STOPPED, 0, static_cast<DWORD>((*service_work)()));
}

}  // namespace

void InstallService(const std::string& name, const std::vector<std::string>& arguments) {
  const Handle manager = Manager(name, SC_MANAGER_CREATE_SERVICE);
  std::wstring command = L"\"" + OwnFile() + kRun;
  for (const std::string& argument : arguments) command += Quoted(kxdata7::ToOleString(argument)) + L' ';
  command.pop_back();
  const std::wstring wide = kxdata7::ToOleString(name);
  const Handle service = Require(
      CreateServiceW(manager.get(), wide.c_str(), (L"KXData7 event processing: " + wide).c_str(),
                     SERVICE_ALL_ACCESS, SERVICE_WIN32_OWN_PROCESS, SERVICE_AUTO_START, SERVICE_ERROR_NORMAL,
                     command.c_str(), nullptr, nullptr, nullptr, nullptr, nullptr),
      name);
  // Again after five seconds when it fails, as a plant that cannot be reached when the machine starts.
  SC_ACTION restart{SC_ACTION_RESTART, 5000};
  SERVICE_FAILURE_ACTIONSW actions{86'400, nullptr, nullptr, 1, &restart};
  SERVICE_FAILURE_ACTIONS_FLAG whenever{TRUE};
  ChangeServiceConfig2W(service.get(), SERVICE_CONFIG_FAILURE_ACTIONS, &actions);
  ChangeServiceConfig2W(service.get(), SERVICE_CONFIG_FAILURE_ACTIONS_FLAG, &whenever);
}

void RemoveService(const std::string& name) {
  const Handle manager = Manager(name, SC_MANAGER_CONNECT);
  const Handle service =
      Require(OpenServiceW(manager.get(), kxdata7::ToOleString(name).c_str(),
                           SERVICE_STOP | SERVICE_QUERY_STATUS | SERVICE_QUERY_CONFIG | DELETE),
              name);
  if (!IsOwn(service.get())) throw ToolError("the service \"" + name + "\" is another program's");
  SERVICE_STATUS status{};
  ControlService(service.get(), SERVICE_CONTROL_STOP, &status);
  for (DWORD waited = 0; waited < kLongestStop && QueryServiceStatus(service.get(), &status) != 0 &&
                         status.dwCurrentState != SERVICE_STOPPED;
       waited += 100)
    Sleep(100);
  if (DeleteService(service.get()) == 0) Throw(name, GetLastError());
}

void RunService(const std::string& name, const std::function<int()>& work) {
  service_work = &work;
  service_name = kxdata7::ToOleString(name);
  const SERVICE_TABLE_ENTRYW table[] = {{service_name.data(), Serve}, {nullptr, nullptr}};
  if (StartServiceCtrlDispatcherW(table) != 0) return;
  if (GetLastError() == ERROR_FAILED_SERVICE_CONTROLLER_CONNECT) {
    throw ToolError(
        "the service control manager alone runs this; in a console it is \"kxdata7 process PLANT --follow\"");
  }
  Throw(name, GetLastError());
}

}  // namespace kx::tool
