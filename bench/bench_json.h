// A small JSON writer for the benchmarks' result files: objects, arrays, strings, numbers and
// booleans, written as they are added, two-space indentation. A figure that was not measured
// (NaN) or is infinite is written as null.
#pragma once

#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

namespace conflink::bench {

class JsonWriter {
 public:
  // An object member's key; the value follows with one of the calls below.
  JsonWriter& key(const std::string& name) {
    separate();
    string(name);
    text_ += ": ";
    afterKey_ = true;
    return *this;
  }
  JsonWriter& beginObject() { return open('{'); }
  JsonWriter& endObject() { return close('}'); }
  JsonWriter& beginArray() { return open('['); }
  JsonWriter& endArray() { return close(']'); }

  JsonWriter& value(const std::string& s) {
    separate();
    string(s);
    return *this;
  }
  JsonWriter& value(const char* s) { return value(std::string(s)); }
  JsonWriter& value(bool b) {
    separate();
    text_ += b ? "true" : "false";
    return *this;
  }
  JsonWriter& value(double number) {
    separate();
    if (!std::isfinite(number)) {
      text_ += "null";
    } else {
      char buffer[32];
      std::snprintf(buffer, sizeof buffer, "%.6g", number);
      text_ += buffer;
    }
    return *this;
  }
  JsonWriter& value(long number) {
    separate();
    text_ += std::to_string(number);
    return *this;
  }
  JsonWriter& value(int number) { return value(static_cast<long>(number)); }

  // Shorthands for one member.
  template <class T>
  JsonWriter& member(const std::string& name, const T& v) {
    return key(name).value(v);
  }

  const std::string& text() const { return text_; }

  // Writes the document and a final newline to `path`; false when that fails.
  bool save(const std::string& path) const {
    std::FILE* file = std::fopen(path.c_str(), "w");
    if (file == nullptr) return false;
    const bool written = std::fwrite(text_.data(), 1, text_.size(), file) == text_.size() &&
                         std::fputc('\n', file) != EOF;
    return std::fclose(file) == 0 && written;
  }

 private:
  // Before a value or key: a comma after an earlier element, and the line's indentation.
  void separate() {
    if (afterKey_) {
      afterKey_ = false;
      return;
    }
    if (!counts_.empty()) {
      if (counts_.back()++ > 0) text_ += ',';
      text_ += '\n';
      text_.append(2 * counts_.size(), ' ');
    }
  }
  JsonWriter& open(char bracket) {
    separate();
    text_ += bracket;
    counts_.push_back(0);
    return *this;
  }
  JsonWriter& close(char bracket) {
    const bool empty = counts_.back() == 0;
    counts_.pop_back();
    if (!empty) {
      text_ += '\n';
      text_.append(2 * counts_.size(), ' ');
    }
    text_ += bracket;
    return *this;
  }
  void string(const std::string& s) {
    text_ += '"';
    for (unsigned char c : s) {
      if (c == '"' || c == '\\') {
        text_ += '\\';
        text_ += static_cast<char>(c);
      } else if (c < 0x20) {
        char escaped[8];
        std::snprintf(escaped, sizeof escaped, "\\u%04x", c);
        text_ += escaped;
      } else {
        text_ += static_cast<char>(c);
      }
    }
    text_ += '"';
  }

  std::string text_;
  std::vector<int> counts_;  // elements written so far in each open object or array
  bool afterKey_ = false;
};

}  // namespace conflink::bench
