#pragma once

#include "host/application/SmartHandle.h"
#include "host/foundation/IniFile.h"
#include "host/foundation/Stream.h"
#include "host/foundation/String.h"

#include <functional>
#include <map>

/// The root of the host's objects: named values, copied, merged, sent and
/// saved as a whole.
///
/// The order of the virtual operations from here to RenderJob is a contract
/// with compiled modules: never add, remove or reorder one. That is why a
/// derived class that has more state than the values here hands a StateTable
/// to the constructor instead of a further virtual operation.
class TrovikObject {
public:
  virtual ~TrovikObject();

  /// Makes this object a whole copy of another of the same class.
  virtual void Clone(const TrovikObject& other);
  /// Takes over the other's values that are not empty.
  virtual void Merge(const TrovikObject& other);
  /// A value kept here; an absent one is the empty text, and raises Exception*
  /// unless `quiet`.
  virtual String Get(const String& name, bool quiet) const;
  virtual void Set(const String& name, const String& value);
  /// Writes, and reads back, the whole state. Read raises Exception* when the
  /// stream is malformed; the object is then not usable.
  virtual void Send(OutStream& out) const;
  virtual void Read(InStream& in);
  /// The same in the readable form of a file: sections "Object" and "Values",
  /// with backslash escapes that keep every text exactly. Save wants a file
  /// without these sections; Load raises Exception* for one without "Object".
  virtual void Save(IniFile& file) const;
  virtual void Load(IniFile& file);

  TrovikObject(const TrovikObject&) = delete;
  TrovikObject& operator=(const TrovikObject&) = delete;

  /// The object's reference to itself, valid while handles own it.
  WeakCountedObject& WeakSelf() { return m_WeakSelf; }
  const WeakCountedObject& WeakSelf() const { return m_WeakSelf; }

protected:
  using ValueMap = std::map<String, String, String::ciless>;
  static constexpr const char* k_ObjectSection = "Object";
  static constexpr const char* k_ValueSection = "Values";

  /// How a derived class's whole state is reached; every function is given
  /// the object. A table without functions stands for the values alone.
  /// Section is k_ObjectSection for what the class itself is (it comes first,
  /// and Merge leaves it alone) and k_ValueSection for its values.
  struct StateTable {
    using Visit = std::function<void(const String& section, const String& name, const String& value)>;
    void (*Pack)(const TrovikObject& object, OutStream& out) = nullptr;
    void (*Unpack)(TrovikObject& object, InStream& in, unsigned int version) = nullptr;
    void (*ForEach)(const TrovikObject& object, const Visit& visit) = nullptr;
    void (*Assign)(TrovikObject& object, const String& section, const String& name,
                   const String& value) = nullptr;
  };

  /// The version that Send writes and that Read hands on.
  static constexpr unsigned int k_StateVersion = 1;

  TrovikObject();
  explicit TrovikObject(const StateTable& table);

  ValueMap& Values() { return m_Values; }
  const ValueMap& Values() const { return m_Values; }

  /// The values alone as a stream: their number, then names and texts.
  void PackValues(OutStream& out) const;
  static ValueMap UnpackValues(InStream& in);

private:
  void ForEachValue(const StateTable::Visit& visit) const;
  void AssignValue(const String& section, const String& name, const String& value);
  void PackState(OutStream& out) const;
  void UnpackState(InStream& in, unsigned int version);

  const StateTable m_Table;
  ValueMap m_Values;
  WeakCountedObject m_WeakSelf;
};
