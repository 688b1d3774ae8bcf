#pragma once

#include <vector>

#include "runtime/Types.h"
#include "wire/Address.h"
#include "wire/Reader.h"
#include "wire/Writer.h"

/// What all PIM messages have in common: the header of four bytes, and the checksum in it (RFC 7761
/// section 4.9).
namespace pimbsr::wire {

enum class MessageType : U8 { hello = 0, bootstrap = 4, crpAdv = 8 };

/// The top flag bit of a Bootstrap message: its receiver must not send it on (RFC 5059 section 4.1).
constexpr U8 noForwardFlag = 0x80;

/// Header fields that depend on no type.
struct MessageHeader {
  U8 type = 0;
  U8 flags = 0;
};

/// Reads the header, checking that it is there and the version is 2; leaves the cursor after it.
ReadError readHeader(Reader& in, MessageHeader& header);

/// Reads the header of a message that is to be of this type, and verifies the checksum over all bytes left in
/// the cursor. Gives the flags.
ReadError readHeader(Reader& in, MessageType type, U8& flags);

/// Clears the buffer and writes the header with a checksum still open.
void writeHeader(std::vector<U8>& out, MessageType type, U8 flags = 0);

/// Fills in the checksum of a message that is written in full.
PIMBSR_INTERNAL void writeChecksum(std::vector<U8>& out);

}  // namespace pimbsr::wire
