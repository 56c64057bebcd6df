#pragma once

#include "host/foundation/Descriptor.h"
#include "host/foundation/Path.h"

#include <sys/types.h>

#include <string_view>

/// What becomes of a file that is there already.
enum class Existing {
  Replace, ///< it is replaced, and the new one has its permissions; of a link what it leads to
  Keep,    ///< nothing is written
};

/// A new file beside another ("FILE.new-…"), which takes that one's name when
/// it is whole: nobody ever sees half of it, and a failure leaves what was
/// there. Removed with the object unless it was published.
///
/// Its errors are numbers of the system (errno); 0 is none. A link that leads
/// nowhere is one, and so is whatever is no regular file.
class FileDraft {
public:
  /// Makes the file; a new one gets `mode` as the umask allows it.
  FileDraft(const Path& file, Existing existing, mode_t mode = 0666);
  ~FileDraft();
  FileDraft(const FileDraft&) = delete;
  FileDraft& operator=(const FileDraft&) = delete;

  /// The first that went wrong.
  int Error() const { return m_Error; }
  /// The same in words; empty for none.
  String Reason() const;
  /// Of a link that leads nowhere: where that is, in words.
  const String& Link() const { return m_Link; }
  /// For those who write a file by its name.
  const Path& Name() const { return m_Name; }
  void Write(std::string_view bytes);
  /// Syncs it, gives it its name and syncs that; nothing after an error. Returns
  /// the error: EEXIST where the other is there and is kept.
  int Publish();

private:
  int Rename() const;
  bool FollowLink();

  Path m_File; // what is written in the end
  String m_Link;
  Existing m_Existing;
  Path m_Name;
  Descriptor m_Descriptor;
  int m_Error = 0;
  bool m_IsPublished = false;
};

/// Writes a file as a whole, by way of a draft. Of several who write one with
/// Existing::Keep, be it on several machines of a network file system, one
/// succeeds. False where it is there already and is kept. Raises Exception* on
/// failure, whose text begins with `function`.
bool WriteFileWhole(const char* function, const Path& file, std::string_view bytes, Existing existing);

/// Makes a folder, and those above it that are missing, each for this user
/// alone whatever the umask says. What is there stays as it is. Returns 0, or
/// the error (errno).
int MakePrivateFolder(const Path& folder);
