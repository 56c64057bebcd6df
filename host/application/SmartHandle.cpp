#include "host/application/SmartHandle.h"

SmartCountedObject::SmartCountedObject(const WeakCountedObject& weak) : m_Owner(weak.m_Owner.lock()) {
  if (m_Owner == nullptr) {
    RaiseException("SmartCountedObject::SmartCountedObject", k_ErrorHandle,
                   "Cannot construct a SmartCountedObject from and invalid WeakCountedObject");
  }
}
