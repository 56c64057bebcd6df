#pragma once

#include "host/foundation/String.h"

#include <utility>
#include <vector>

/// A file path: the bytes of its text, with "/" between components. Nothing
/// here touches the file system.
class Path {
public:
  Path() = default;
  Path(const char* text) : m_Text(text) {}
  Path(const String& text) : m_Text(text) {}
  Path(String&& text) : m_Text(std::move(text)) {}
  Path(const std::string& text) : m_Text(text) {}

  const String& Text() const { return m_Text; }
  operator const String&() const { return m_Text; }
  const char* c_str() const { return m_Text.c_str(); }
  bool empty() const { return m_Text.empty(); }
  bool IsAbsolute() const { return !m_Text.empty() && m_Text[0] == '/'; }

  /// The last component: with its extension (true) or without it (false).
  /// "/a/b.0001.exr" gives "b.0001.exr" or "b.0001". A path that ends in "/"
  /// has an empty leaf. A leading point does not start an extension.
  String Leaf(bool withExtension) const;

  /// The text after the last point of the leaf, without the point; empty when
  /// the leaf has none.
  String Extension() const;

  /// The directory part; empty for a bare name. With `keepRelative` it stays as
  /// written, without it is made absolute against the process's current
  /// directory. With `dropSeparator` it has no trailing "/" (but the root is
  /// "/"), without it keeps one, so that a name can be appended as text.
  String Branch(bool keepRelative, bool dropSeparator) const;

  /// Appends one component with exactly one "/" between. An empty path takes
  /// the component as it is; an empty component only adds the "/" (and nothing
  /// to an empty path).
  Path& operator/=(const String& component);

  /// The text as one word of a command line (see Quoting.h), bare where no
  /// character needs quotes.
  String Enquote() const;

  /// The path without the enclosing double quotes that Enquote writes, and
  /// with its escapes undone. Any other text comes back unchanged.
  Path Dequote() const;

  /// The path rewritten for this machine by the longest matching source prefix
  /// of the table below; whole components only, unchanged where none matches.
  Path TranslateToLocal() const;

  /// The table of prefix pairs (source, local). Trailing "/" are dropped, and
  /// so are pairs with an empty side. Set once by the application from its
  /// settings, before threads exist; not locked.
  static void SetTranslations(std::vector<std::pair<String, String>> pairs);
  static const std::vector<std::pair<String, String>>& Translations();

  friend bool operator==(const Path& left, const Path& right) { return left.m_Text == right.m_Text; }
  friend bool operator!=(const Path& left, const Path& right) { return !(left == right); }
  friend bool operator<(const Path& left, const Path& right) { return left.m_Text < right.m_Text; }

private:
  String m_Text;
};
