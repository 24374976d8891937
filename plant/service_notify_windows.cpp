#include "plant/service_notify.h"

namespace kx::tool {

// The service control manager asks for nothing but the end.
ServiceNotify::ServiceNotify() = default;
ServiceNotify::~ServiceNotify() = default;
void ServiceNotify::Ready() {}
void ServiceNotify::Stopping() {}
void ServiceNotify::Status(const std::string&) {}
void ServiceNotify::Alive() {}

}  // namespace kx::tool
