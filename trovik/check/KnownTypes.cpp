#include "trovik/check/KnownTypes.h"

#include "host/foundation/Exception.h"
#include "trovik/check/TypeCheck.h"
#include "trovik/text/UsageError.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace trovik {
namespace {

std::vector<PlacedText> namesOf(const TypeSource& source) {
  std::vector<PlacedText> names;
  IniFile::EntryView entry;
  if (source.ini().FindEntry("Module", "Name", entry)) {
    names.push_back(valueOf(entry));
  }
  if (source.ini().FindEntry("Module", "Shortcut", entry)) {
    for (PlacedText& piece : piecesOf(valueOf(entry), ',')) {
      String alias(piece.text);
      const std::size_t blanks = std::min(piece.text.find_first_not_of(" \t"), piece.text.size());
      alias.Trim();
      names.push_back({alias, piece.span.part(blanks, std::min(alias.size(), piece.span.length))});
    }
  }
  std::erase_if(names, [](const PlacedText& name) { return name.text.empty(); });
  return names;
}

} // namespace

KnownTypes::Type KnownTypes::typeOf(const TypeSource& source) {
  Type type;
  type.shown = source.shown();
  std::error_code error;
  const std::filesystem::path real = std::filesystem::canonical(source.path().Text().c_str(), error);
  type.real = error ? std::string(source.path().Text()) : real.string();
  type.leaf = source.path().Leaf(true);
  IniFile::EntryView entry;
  if (source.ini().FindEntry("Module", "ID", entry)) {
    try {
      type.id.FromString(String(entry.Value));
      type.idLine = entry.ValuePlace.Line;
    } catch (Exception* exception) {
      takeText(exception);
    }
  }
  type.name = source.ini().GetValue("Module", "Name", "");
  for (const PlacedText& name : namesOf(source)) {
    type.names.push_back(lowered(name.text));
  }
  return type;
}

void KnownTypes::add(const TypeSource& source) {
  Type type = typeOf(source);
  const bool known = std::any_of(types_.begin(), types_.end(), [&type](const Type& other) {
    return !type.real.empty() && other.real == type.real;
  });
  if (!known && type.idLine != 0) {
    types_.push_back(std::move(type));
  }
}

void KnownTypes::addShipped(const TypeSource& source) {
  const Type type = typeOf(source);
  if (type.idLine != 0) {
    shipped_.insert(type.id);
  }
}

bool KnownTypes::isShipped(const TypeSource& source) const {
  const Type type = typeOf(source);
  return type.idLine != 0 && shipped_.contains(type.id);
}

void KnownTypes::check(const TypeSource& source, Findings& out) const {
  const Type own = typeOf(source);
  IniFile::EntryView id;
  source.ini().FindEntry("Module", "ID", id);
  for (const Type& other : types_) {
    if (out.full() || (!own.real.empty() && other.real == own.real) ||
        (own.real.empty() && other.shown == own.shown)) {
      continue;
    }
    if (own.idLine != 0 && other.id == own.id) {
      if (other.leaf != own.leaf || own.leaf.empty()) {
        out.error("doubled-id", valueOf(id).span,
                  "the type " + quotedText(other.name) + " of " + other.shown + ":" +
                      std::to_string(other.idLine) + " has this ID already",
                  "write one of its own, such as ID=" + UID(true).GenString());
      }
      continue;
    }
    for (const PlacedText& name : namesOf(source)) {
      if (std::find(other.names.begin(), other.names.end(), lowered(name.text)) != other.names.end()) {
        out.warning("shared-name", name.span,
                    "the type " + quotedText(other.name) + " of " + other.shown + " answers to " +
                        quotedText(name.text) + " too",
                    "choose another name, or else users must give the ID");
      }
    }
  }
}

} // namespace trovik
