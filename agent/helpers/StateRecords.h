#pragma once

#include <cstddef>

#include "runtime/Types.h"

/// What an agent and the writer of its state files send each other over their socket.
namespace pimbsr::agent {

using Zet::S64;
using Zet::U32;
using Zet::U64;

/// The head of a record for one file of the state directory. The text of an `append` follows in the same
/// message; a `replace` has it in a file in memory beside the message.
struct StateRecord {
  enum class Kind : U32 { append, replace };

  Kind kind = Kind::append;
  U32 file = 0;    ///< which file: its place among those that the writer was made with
  U64 number = 0;  ///< of the record, from 1 on
};

/// The longest text of an append, in bytes.
inline constexpr std::size_t maxStateAppend = std::size_t{32} << 10;

/// What the writer reports.
struct StateReport {
  enum class Kind : U32 {
    ready,     ///< it holds the lock of the directory, so that nothing writes there any more
    waiting,   ///< the writer of an agent that has ended holds the lock; `ready` follows once it has ended
    unusable,  ///< there is no such directory, or another writer holds its lock; it has ended
    failed,    ///< a record could not be written, or the file not be synced
    synced,    ///< all appends up to a number were written and synced
    replaced,  ///< a `replace` was written and synced
    restarted  ///< the process that writes had died and is another
  };

  Kind kind = Kind::ready;
  U32 file = 0;    ///< with failed, synced and replaced
  S64 error = 0;   ///< with failed and unusable: the system's error number
  U64 number = 0;  ///< with failed, synced and replaced: of the last record
};

}  // namespace pimbsr::agent
