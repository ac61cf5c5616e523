// Evaluation of route maps, shared with client tasks. The caller holds the read lock.
#pragma once

#include <string>
#include <vector>

#include "common/lists/routeMap.h"
#include "match/zekPrefix.h"

// A route as a routing task hands it over, and as the set clauses of a map leave it. Numbers are in
// host order; what a route does not have is 0 or empty.
struct rmapRoute {
    ipPrefix prefix{};
    uint32_t nextHop = 0;       // IPv4
    uint8_t nextHop6[16] = {};  // IPv6
    uint32_t source = 0;        // the router that told the route; IPv4
    uint8_t source6[16] = {};
    uint32_t ifindex = 0;
    uint32_t metric = 0;
    uint32_t tag = 0;
    uint32_t routeType = 0;   // rmapRouteTypes
    uint32_t metricType = 0;  // rmapMetricTypes
    uint32_t level = 0;       // rmapLevels
    uint32_t localPreference = 0;
    uint32_t weight = 0;
    uint32_t origin = 0;  // rmapOrigins
    uint32_t dampening[4] = {};
    std::string asPath;                 // as aspath_make_str_count writes it
    std::vector<uint32_t> communities;  // in any order
    std::vector<extCommValue> extCommunities;
};

// One step of an evaluation, for whoever wants to know how it came to its verdict. The first step
// of an instance has no entry; a step for each of its match clauses follows until one does not
// hold, and, when all held, one for each set clause and for the continue clause.
struct rmapStep {
    const rmapInstance* instance;
    const rmapEntry* entry;  // null: the instance itself
    bool holds;              // match clauses: whether it does; the instance: whether all do
    // The value that held, null when none did or the clause has none of this kind.
    const rmapNameValue* name;
    const rmapNumberValue* number;
};

// 1: the route is dropped; 0: it is permitted, and *out is the route with the set clauses applied.
//
// Instances are tried in ascending order. Values of one match clause are alternatives, all clauses
// of an instance must hold, an instance without match clauses holds always. The first instance that
// holds decides: deny drops; permit applies its set clauses. With a continue clause the search goes
// on at the instance with the clause's number (or, when it is gone, the next larger one; 0: the
// next instance): what holds there applies its sets on top, or drops; when nothing more holds, the
// route is permitted. Match clauses see the route as it came. Nothing holds, no map: dropped.
//
// A route is of one family: matches of the other family's fields do not hold. Access lists see the
// prefix's address as source and its mask as destination; a next hop or a source is a source
// address, or for prefix lists a prefix of full length. "external" covers both of its types.
//
// `out` may be `&route`; it is not touched when the route is dropped. Every instance that holds
// counts a hit, as do the entries of lists that decided; a question with a trace (it may be null)
// counts nothing.
int ipRoutemapCheck(const rmapList* map, const rmapRoute& route, rmapRoute* out,
                    std::vector<rmapStep>* trace = nullptr);

// The instances of a map as the evaluation reads them, made by the first reader that needs it.
// The store lets go of it at every change, while it holds the write lock.
struct rmapProgram;
void rmapProgramDrop(rmapList* map);
