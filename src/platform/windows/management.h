// What the system says of itself: by its management service, and by the registry as the shell's object reads it.
#pragma once

#include <string>
#include <vector>

#include "platform/windows/automation.h"
#include "platform/windows/system_calls.h"

class Management {
 public:
  explicit Management(const SystemCalls& calls) : calls_(calls) {}

  // As BindManagement and QueryManagement of the port.
  bool Bind();
  std::vector<std::vector<std::string>> Query(const std::string& query, bool forward_only,
                                              const std::vector<std::string>& properties);
  // As ReadRegistry of the port.
  bool ReadRegistry(const std::string& path, std::string& value);

 private:
  SystemCalls calls_;
  ComPointer<IDispatch> service_;
  ComPointer<IDispatch> shell_;
};
