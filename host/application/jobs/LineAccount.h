#pragma once

#include "host/foundation/String.h"

/// What a job made of one line of its program's output, and by which texts.
struct LineAccount {
  enum class Fate {
    Ordinary,     ///< nothing in it matters
    Image,        ///< it names an image
    Dropped,      ///< an image line that names none after all
    Success,      ///< it holds a success text
    Error,        ///< it makes the work fail; the first such line is the one that is quoted
    IgnoredError, ///< it holds an error text, and an ignore text as well
  };

  Fate What = Fate::Ordinary;
  /// The parameter whose list holds the text that spoke; null for an ordinary
  /// line, and for a job that does not tell.
  const char* List = nullptr;
  String Text; ///< as it is written in the list
  /// The second text: of an image the end text that cut its name, of an
  /// ignored error the error text; else empty.
  String Other;
  String Image; ///< the image as the program named it
};
