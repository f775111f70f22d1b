// The attributes of the conditions that exist, shared with the tests.
#ifndef QIV_SYNC_CONDITION_H
#define QIV_SYNC_CONDITION_H

#include <pthread.h>

#include <map>

#include "base/load_time_mutex.h"

namespace qiv::sync {

/** Guards g_mapCondAttr. */
extern base::LoadTimeMutex g_lockCondAttr;

/** The attribute of each condition that QIV_CondCreate() made, by the condition's address. */
extern std::map<pthread_cond_t*, pthread_condattr_t*> g_mapCondAttr QIV_GUARDED_BY(g_lockCondAttr);

}  // namespace qiv::sync

#endif
