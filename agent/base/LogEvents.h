#pragma once

#include "agent/base/LogRecord.h"

/// The kinds of events that are logged. docs/operations.md lists them.
namespace pimbsr::agent::logEvents {

// The agent
inline constexpr LogEvent note{"note", LogPriority::info, ""};
inline constexpr LogEvent trace{"trace", LogPriority::debug, ""};
inline constexpr LogEvent started{"started", LogPriority::info, "3f2dbf74b87b4c6bb57a052d6b8a7d9b"};
inline constexpr LogEvent stopped{"stopped", LogPriority::info, "bb57bc15dce64d52a6560a16d4589902"};
inline constexpr LogEvent reloaded{"reloaded", LogPriority::notice, "265b95c038f046f296629af57651a65a"};
inline constexpr LogEvent reloadRejected{"reload-rejected", LogPriority::error,
                                         "0d644c97167e4d88af79b5d5de7ac5a9"};
inline constexpr LogEvent historyError{"history-error", LogPriority::warning,
                                       "485224849bfa458ab88e7bfe71cf9096", "history"};
inline constexpr LogEvent historyKept{"history-kept", LogPriority::notice, "0e1dd1be2c7c44d7abd20ca492d47085",
                                      "history"};
inline constexpr LogEvent changeCommandFailed{"change-command-failed", LogPriority::error,
                                              "3b5a2e42d8e94c86bfbd1954b5846a61"};

// Zones
inline constexpr LogEvent bsrElected{"bsr-elected", LogPriority::notice, "a51ea1884a764f13bd7fd3e817790f43",
                                     "bsr"};
inline constexpr LogEvent bsrChanged{"bsr-changed", LogPriority::notice, "5d99f15fd7dd4517b1dcf5113dfe6ce4",
                                     "bsr"};
inline constexpr LogEvent bsrLost{"bsr-lost", LogPriority::warning, "5be8f03a005a4ba3bf7134ec24a55c3e",
                                  "bsr"};
inline constexpr LogEvent candidateState{"candidate-state", LogPriority::notice,
                                         "103f8aaad49c4d179b0e79c0c3bb10eb"};
inline constexpr LogEvent rpSetEmptied{"rp-set-emptied", LogPriority::warning,
                                       "ccdcccc595ed4e8f9539d7923b101721"};

// Interfaces and neighbors
inline constexpr LogEvent interfaceUp{"interface-up", LogPriority::info, "1e45f7efa96a4458b23a9c37e6fcf651",
                                      "interface"};
inline constexpr LogEvent interfaceDown{"interface-down", LogPriority::warning,
                                        "a2f9326365e840e0977f8611ea449685", "interface"};
inline constexpr LogEvent interfaceMissing{"interface-missing", LogPriority::warning,
                                           "32f51d661c494cb6832926bba5b16aba"};
inline constexpr LogEvent interfaceError{"interface-error", LogPriority::error,
                                         "21cf55d9f471484b97004fd7c8a4286d"};
inline constexpr LogEvent duplicateAddress{"duplicate-address", LogPriority::warning,
                                           "cc341d49006d4fa69d5973a6fd533c4d"};
inline constexpr LogEvent neighborUp{"neighbor-up", LogPriority::info, "a7d801fdac2849ca839c3fd5cfa6b70d",
                                     "neighbor"};
inline constexpr LogEvent neighborDown{"neighbor-down", LogPriority::notice,
                                       "c1241ef2cf4e4c17adce0b7a65044a8c", "neighbor"};

/// MESSAGE_ID of the messages of the engine, whose name is that of their handle.
inline constexpr std::string_view engineMessageId = "2be92d40614d4e448e0c3c4f09278ebe";

}  // namespace pimbsr::agent::logEvents
