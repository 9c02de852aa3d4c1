// One audio or video codec of a media description. The records keep lists of these and copy them
// element by element, so the type has full value semantics.
#pragma once

#include <string>

class CodecInfo {
 public:
  CodecInfo();
  CodecInfo(const CodecInfo& other);
  CodecInfo& operator=(const CodecInfo& other);
  ~CodecInfo();

  std::string name;  // encoding name as in SDP, e.g. "PCMU", "opus", "H264"
  int payloadType;   // RTP payload type number
  int clockRate;     // RTP clock rate in Hz
  int channels;      // audio channels; 0 for video
  std::string fmtp;  // format parameters, as in an SDP a=fmtp line
  bool operator==(const CodecInfo& other) const;
  bool operator!=(const CodecInfo& other) const { return !(*this == other); }
};
