#pragma once

/// Mirrors the zones of Status.bootstrapRouter into a longest-match trie.
///
/// The trie answers which zone a group belongs to. Its signal changedRoute triggers new advertisements of the
/// candidate-RP machines: when a zone gains or loses its BSR, which is a change of routes, and when one BSR
/// replaces another, which is no change of routes and is signalled explicitly.
#include "crp/PimBsrTrieBuilder.zet.h"
