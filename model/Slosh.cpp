#include "model/Slosh.h"

#include "runtime/Exceptions.h"

namespace Slosh {

using Zet::throwInternalException;

void SloshBaseDummy::type() const { throwInternalException("SloshBaseDummy::type() "); }
void SloshBaseDummy::capacity() const { throwInternalException("SloshBaseDummy::capacity() "); }
void SloshBaseDummy::maxSize() const { throwInternalException("SloshBaseDummy::maxSize() "); }
void SloshBaseDummy::members() const { throwInternalException("SloshBaseDummy::members() "); }
void SloshBaseDummy::first() const { throwInternalException("SloshBaseDummy::first() "); }
void SloshBaseDummy::next() const { throwInternalException("SloshBaseDummy::next() "); }
void SloshBaseDummy::lookup() const { throwInternalException("SloshBaseDummy::lookup() "); }
void SloshBaseDummy::cleanup() { throwInternalException("SloshBaseDummy::cleanup() "); }
void SloshBaseDummy::validate() { throwInternalException("SloshBaseDummy::validate() "); }
void SloshBaseDummy::validateFiles() { throwInternalException("SloshBaseDummy::validateFiles() "); }
void SloshBaseDummy::detach() { throwInternalException("SloshBaseDummy::detach() "); }
void SloshBaseDummy::initialize() { throwInternalException("SloshBaseDummy::initialize() "); }
void SloshBaseDummy::mountStatus() const { throwInternalException("SloshBaseDummy::mountStatus() "); }
void SloshBaseDummy::readerCounters() const { throwInternalException("SloshBaseDummy::readerCounters() "); }

void ReadOnlySloshTable::cleanup() { throwInternalException("cleanup to read-only Slosh table"); }
void ReadOnlySloshTable::validate() { throwInternalException("validate to read-only Slosh table"); }
void ReadOnlySloshTable::validateFiles() { throwInternalException("validateFiles to read-only Slosh table"); }
void ReadOnlySloshTable::writerCounters() const {
  throwInternalException("writerCounters() not implemented");
}
void ReadOnlySloshTable::readerCounters() const {
  throwInternalException("readerCounters() not implemented");
}
void ReadOnlySloshTable::throwOnWrite() { throwInternalException("write to read-only Slosh table"); }
void ReadOnlySloshTable::throwOnRemove() { throwInternalException("remove to read-only Slosh table"); }

}  // namespace Slosh
