#pragma once

#include "host/foundation/Exception.h"

#include <memory>
#include <utility>

class SmartCountedObject;

/// An object's own weak reference to itself: valid while some counted handle
/// owns the object. It is set when the first owning handle is made.
class WeakCountedObject {
public:
  bool IsValid() const { return !m_Owner.expired(); }

private:
  friend class SmartCountedObject;
  template <typename T> friend class SmartHandle;
  std::weak_ptr<const void> m_Owner;
};

/// The counted part of a handle: keeps its object alive. Copies may be made
/// and dropped in different threads.
class SmartCountedObject {
public:
  SmartCountedObject() = default;
  /// Raises Exception* "Cannot construct a SmartCountedObject from and invalid
  /// WeakCountedObject" when no handle owns the object.
  explicit SmartCountedObject(const WeakCountedObject& weak);

  bool IsNull() const { return m_Owner == nullptr; }

protected:
  explicit SmartCountedObject(std::shared_ptr<const void> owner) : m_Owner(std::move(owner)) {}
  const std::shared_ptr<const void>& Owner() const { return m_Owner; }

private:
  template <typename T> friend class SmartHandle;
  std::shared_ptr<const void> m_Owner;
};

/// A counted handle to a T. The object is destroyed with the last handle, by
/// the function that the first one was given (a module's DeleteJob for jobs).
template <typename T> class SmartHandle : public SmartCountedObject {
public:
  SmartHandle() = default;

  /// Takes ownership of an object that has a `WeakCountedObject& WeakSelf()`.
  /// `destroy` takes a pointer to T.
  template <typename Destroy>
  SmartHandle(T* object, Destroy destroy)
      : SmartCountedObject(std::shared_ptr<const void>(std::shared_ptr<T>(object, std::move(destroy)))),
        m_Object(object) {
    if (object != nullptr) {
      object->WeakSelf().m_Owner = Owner();
    }
  }
  explicit SmartHandle(T* object) : SmartHandle(object, std::default_delete<T>()) {}

  /// One more handle to an object that handles own already; see
  /// SmartCountedObject for the exception.
  SmartHandle(const WeakCountedObject& weak, T* object) : SmartCountedObject(weak), m_Object(object) {}

  /// A handle to a base class or to a constant object.
  template <typename U>
  requires std::is_convertible_v<U*, T*> SmartHandle(const SmartHandle<U>& other)
      : SmartCountedObject(other), m_Object(other.Get()) {}

  T* Get() const { return m_Object; }
  T* operator->() const { return m_Object; }
  T& operator*() const { return *m_Object; }
  explicit operator bool() const { return m_Object != nullptr; }

private:
  T* m_Object = nullptr;
};
