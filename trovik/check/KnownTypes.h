#pragma once

#include "host/foundation/UID.h"
#include "trovik/check/Diagnostic.h"
#include "trovik/check/TypeSource.h"

#include <set>
#include <string>
#include <vector>

namespace trovik {

/// What the types of all files at hand are called, to find those that get into
/// each other's way.
class KnownTypes {
public:
  /// A file that is known already, by whatever name, is left out.
  void add(const TypeSource& source);

  /// A type that comes with the program.
  void addShipped(const TypeSource& source);
  /// Whether a file is of such a type: itself, a copy, or one's own in its place.
  bool isShipped(const TypeSource& source) const;

  /// Tells where the type of a file has the ID or a name of another one. A
  /// file of the same name in another directory is the same type: a user's own
  /// takes the place of an installed one.
  void check(const TypeSource& source, Findings& out) const;

private:
  struct Type {
    std::string shown;
    std::string real; ///< the file itself, for whatever way it was named
    std::string leaf;
    UID id;
    std::uint32_t idLine = 0;
    std::string name;
    std::vector<std::string> names; ///< all that it answers to, in lower case
  };
  static Type typeOf(const TypeSource& source);

  std::vector<Type> types_;
  std::set<UID> shipped_;
};

} // namespace trovik
