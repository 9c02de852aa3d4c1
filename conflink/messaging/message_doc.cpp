#include <conflink/messaging/message_doc.h>

#include <cxxabi.h>

#include <cstdlib>
#include <memory>

namespace conflink::msg {

std::string TypeNameOf(const std::type_info& type) {
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> readable(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
  return status == 0 && readable ? std::string(readable.get()) : std::string(type.name());
}

}  // namespace conflink::msg
