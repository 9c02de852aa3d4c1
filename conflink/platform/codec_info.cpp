#include <conflink/platform/codec_info.h>

CodecInfo::CodecInfo() : payloadType(0), clockRate(0), channels(0) {}
CodecInfo::CodecInfo(const CodecInfo& other) = default;
CodecInfo& CodecInfo::operator=(const CodecInfo& other) = default;
CodecInfo::~CodecInfo() = default;

bool CodecInfo::operator==(const CodecInfo& other) const {
  return name == other.name && payloadType == other.payloadType && clockRate == other.clockRate &&
         channels == other.channels && fmtp == other.fmtp;
}
