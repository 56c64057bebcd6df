#include "host/foundation/Path.h"

#include "host/foundation/Quoting.h"

#include <algorithm>
#include <filesystem>

namespace {

std::vector<std::pair<String, String>>& TranslationTable() {
  static auto* table = new std::vector<std::pair<String, String>>();
  return *table;
}

std::size_t LeafStart(const String& text) {
  const std::size_t slash = text.rfind('/');
  return slash == String::npos ? 0 : slash + 1;
}

// The position of the point that begins the extension, or npos. A leaf of
// points only ("..") and a leading point have none.
std::size_t ExtensionPoint(std::string_view leaf) {
  const std::size_t point = leaf.rfind('.');
  if (point == std::string_view::npos || leaf.find_first_not_of('.') >= point) {
    return std::string_view::npos;
  }
  return point;
}

// A prefix that the rest of a path can follow as it stands: the root's "/"
// belongs to what follows.
std::string_view WithoutRoot(const String& prefix) {
  return prefix == "/" ? std::string_view() : std::string_view(prefix);
}

} // namespace

String Path::Leaf(bool withExtension) const {
  String leaf = m_Text.substr(LeafStart(m_Text));
  if (!withExtension) {
    leaf.erase(std::min(ExtensionPoint(leaf), leaf.size()));
  }
  return leaf;
}

String Path::Extension() const {
  const String leaf = Leaf(true);
  const std::size_t point = ExtensionPoint(leaf);
  return point == std::string_view::npos ? String::Null : String(leaf.substr(point + 1));
}

String Path::Branch(bool keepRelative, bool dropSeparator) const {
  String branch = m_Text.substr(0, LeafStart(m_Text));
  if (!keepRelative && !IsAbsolute()) {
    std::error_code ignored;
    const std::filesystem::path current = std::filesystem::current_path(ignored);
    branch = (Path(current.string()) /= branch).Text();
  }
  if (dropSeparator) {
    while (branch.size() > 1 && branch.back() == '/') {
      branch.pop_back();
    }
  } else if (!branch.empty() && branch.back() != '/') {
    branch.push_back('/');
  }
  return branch;
}

Path& Path::operator/=(const String& component) {
  if (m_Text.empty()) {
    m_Text = component;
    return *this;
  }
  while (m_Text.size() > 1 && m_Text.back() == '/') {
    m_Text.pop_back();
  }
  if (m_Text.back() != '/') {
    m_Text.push_back('/');
  }
  m_Text.append(component, std::min(component.find_first_not_of('/'), component.size()), String::npos);
  return *this;
}

String Path::Enquote() const {
  return EnquoteWord(m_Text);
}

Path Path::Dequote() const {
  return Path(DequoteWord(m_Text));
}

Path Path::TranslateToLocal() const {
  const std::pair<String, String>* best = nullptr;
  for (const auto& pair : TranslationTable()) {
    const std::string_view source = WithoutRoot(pair.first);
    if (std::string_view(m_Text).starts_with(source) &&
        (m_Text.size() == source.size() ? !source.empty() : m_Text[source.size()] == '/') &&
        (best == nullptr || pair.first.size() > best->first.size())) {
      best = &pair;
    }
  }
  if (best == nullptr) {
    return *this;
  }
  String local(WithoutRoot(best->second));
  local.append(m_Text, WithoutRoot(best->first).size(), String::npos);
  return local.empty() ? Path("/") : Path(local);
}

void Path::SetTranslations(std::vector<std::pair<String, String>> pairs) {
  std::vector<std::pair<String, String>> table;
  for (auto& pair : pairs) {
    for (String* side : {&pair.first, &pair.second}) {
      while (side->size() > 1 && side->back() == '/') {
        side->pop_back();
      }
    }
    if (!pair.first.empty() && !pair.second.empty()) {
      table.push_back(std::move(pair));
    }
  }
  TranslationTable() = std::move(table);
}

const std::vector<std::pair<String, String>>& Path::Translations() {
  return TranslationTable();
}
