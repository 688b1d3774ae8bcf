#pragma once

/// Mirrors Status.crpPermit, the senders from which advertisements are taken, into a longest-match trie. A
/// range held with the value false counts as absent.
#include "crp/PimBsrCrpPermitTrieBuilderSm.zet.h"
