#include "plant/component.h"

#include <filesystem>
#include <iostream>

#include "plant/platform.h"
#include "tools/commands.h"

namespace kx::tool {
namespace {

// The component given by name, beside the tool, where an installation has it, or as registered.
kxdata7::Library FindLibrary(const std::string& given) {
  if (!given.empty()) return kxdata7::Library::Load(ToPath(given));
  const auto folder = OwnFolder();
  for (const char* place : {"", KXDATA7_LIBRARY_FOLDER}) {
    const auto file = folder / place / KXDATA7_LIBRARY_NAME;
    if (!folder.empty() && std::filesystem::exists(file)) return kxdata7::Library::Load(file);
  }
  return kxdata7::Library::Registered();
}

}  // namespace

int Register(const PlantOptions& options, bool remove) {
  const kxdata7::Library library = FindLibrary(options.library);
  remove ? library.Unregister() : library.Register();
  std::cout << (remove ? "The registration is removed.\n" : "The component is registered.\n");
  return 0;
}

Component::Component(const PlantOptions& options, const std::string& connection_string)
    : library_(FindLibrary(options.library)), object_(library_.Create()) {
  kxdata7::Bstr error;
  VARIANT_BOOL connected = VARIANT_FALSE;
  library_.Check(object_->ConnectToDatabase(kxdata7::Bstr::FromUtf8(connection_string).get(), options.dialect,
                                            error.inout(), &connected));
  if (connected != VARIANT_TRUE) throw ToolError(error.ToUtf8());
}

void Component::Append(const EventNumbers& numbers, bool by_dnc, const std::string& param,
                       std::int32_t time_code) {
  const auto append = by_dnc ? &_CKXData7Obj::AppendItemToMDCLogDNC : &_CKXData7Obj::AppendItemToMDCLog;
  kxdata7::Bstr error;
  VARIANT_BOOL queued = VARIANT_FALSE;
  library_.Check((object_.get()->*append)(numbers.dept, numbers.location, numbers.group, numbers.machine,
                                          numbers.command, kxdata7::Bstr::FromUtf8(param).get(), time_code,
                                          error.inout(), &queued));
  if (queued == VARIANT_TRUE) return;
  throw ToolError(error.view().empty() ? "the database did not take the event" : error.ToUtf8());
}

bool Component::DoNext(std::string& error) {
  kxdata7::Bstr text;
  VARIANT_BOOL done = VARIANT_FALSE;
  library_.Check(object_->DoNextItemFromMDCLog(text.inout(), &done));
  error = text.ToUtf8();
  return done == VARIANT_TRUE;
}

std::int32_t Component::Count() {
  LONG count = 0;
  library_.Check(object_->GetMDCLogCount(&count));
  return count;
}

bool Component::IsConnected() {
  VARIANT_BOOL connected = VARIANT_FALSE;
  library_.Check(object_->IsConnected(&connected));
  return connected == VARIANT_TRUE;
}

kxdata7::ComPtr<IKXData7Diagnosis> Component::Diagnosis() const {
  auto diagnosis = object_.Query<IKXData7Diagnosis>(IID_IKXData7Diagnosis);
  if (!diagnosis) throw ToolError("the component is older than this tool");
  return diagnosis;
}

DateTime Component::ServerTime() {
  kxdata7::Bstr time;
  library_.Check(Diagnosis()->GetServerTime(time.out()));
  return Value(time.ToUtf8()).ToDateTime();
}

std::optional<Component::Trial> Component::Try(std::int32_t index) {
  kxdata7::Bstr name;
  kxdata7::Bstr error;
  const HRESULT result = Diagnosis()->TryStatements(index, name.out(), error.out());
  library_.Check(result);
  if (result == S_FALSE) return std::nullopt;
  return Trial{name.ToUtf8(), error.ToUtf8()};
}

}  // namespace kx::tool
