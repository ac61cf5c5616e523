// Descriptions: one free text for a list of any kind, in the line right behind its header.
//
// The database alone keeps them. A description goes with its list's block of lines; who writes a
// block anew reads it first and writes it again behind the new header. The caller holds the write
// lock.
#pragma once

#include "common/cfgline.h"

struct cfgDescription {
    zekCfgRecord place;
    uint32_t sync;  // cfgOperation of the list's header
    bool given;     // there is one, and `request` makes it
    cliDescriptionReq request;
};

// Where a list's description stands, or that of a route map's instance; none is given.
cfgDescription cfgDescriptionOf(const cfgBlock& block, cfgFamily family, const listName& name);
cfgDescription cfgDescriptionOf(const listName& map, int32_t instance);
// What stands there. False: the database cannot be read.
[[nodiscard]] bool cfgDescriptionRead(cfgDescription* description);
// Their line and its word to the feed; nothing when none is given.
void cfgDescriptionWrite(const cfgDescription& description);
void cfgDescriptionRemove(const cfgDescription& description);
