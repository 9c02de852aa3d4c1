#include <conflink/wire/wire.h>

#include <cstdio>

namespace conflink::wire {

std::string Reader::describe() const {
  if (ok()) return {};
  char text[256];
  if (record_ != nullptr) {
    std::snprintf(text, sizeof text, "%s at offset %zu: %llu bytes needed, %zu left (%s.%s)", what_,
                  failOffset_, static_cast<unsigned long long>(wanted_), left_, record_, field_);
  } else {
    std::snprintf(text, sizeof text, "%s at offset %zu: %llu bytes needed, %zu left", what_,
                  failOffset_, static_cast<unsigned long long>(wanted_), left_);
  }
  return text;
}

}  // namespace conflink::wire
