#pragma once

/// Mirrors the zones of Status.bootstrapRouter into a longest-match trie.
///
/// The trie answers which zone a group belongs to, and its signal changedRoute tells the candidate-RP
/// machines when to advertise anew: when a zone gains or loses its BSR, which is a change of routes, and when
/// one BSR replaces another, which is not and is signalled by hand.
#include "crp/PimBsrTrieBuilder.zet.h"
