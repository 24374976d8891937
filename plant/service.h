#pragma once

#include <functional>
#include <string>
#include <vector>

namespace kx::tool {

// ---- This program as a service of the system: on Windows; elsewhere a ToolError says what runs it ----

// Makes the service `name`, which starts with the system and then runs this program with `arguments`. What
// keeps it from that is a ToolError.
void InstallService(const std::string& name, const std::vector<std::string>& arguments);

// Stops the service and takes it away; one that is not this program's is left alone.
void RemoveService(const std::string& name);

// Runs `work` for the service control manager, which has started this program. What a StopSignal catches is
// then the manager's wish that it end. The result of `work`, 0 or not, is that of the service.
void RunService(const std::string& name, const std::function<int()>& work);

}  // namespace kx::tool
