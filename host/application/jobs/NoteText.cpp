#include "host/application/jobs/NoteText.h"

#include "host/foundation/Characters.h"

String NoteText(const String& text, std::size_t limit) {
  std::size_t end = text.size();
  if (end > limit) {
    end = limit;
    // A character has three continuation bytes at most; more are binary.
    while (end > 0 && limit - end < 3 && IsContinuation(text[end])) {
      --end;
    }
    end = IsContinuation(text[end]) ? limit : end;
  }
  String shown;
  shown.reserve(end + 4);
  for (std::size_t i = 0; i < end; ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    // Terminals also take U+0080 to U+009F (C2 80 to C2 9F) for controls.
    const bool pair = byte == 0xC2U && i + 1 < end && static_cast<unsigned char>(text[i + 1]) < 0xA0U &&
                      IsContinuation(text[i + 1]);
    i += pair ? 1 : 0;
    shown.push_back(pair || byte < 0x20U || byte == 0x7FU ? '?' : text[i]);
  }
  if (end < text.size()) {
    shown += "…";
  }
  return shown;
}
