#pragma once

// The entity framework in one include.

#include "platform/vel/Assert.h"
#include "platform/vel/Collection.h"
#include "platform/vel/Entity.h"
#include "platform/vel/Exception.h"
#include "platform/vel/Internals.h"
#include "platform/vel/Name.h"
#include "platform/vel/Notifier.h"
#include "platform/vel/Ptr.h"
#include "platform/vel/Reactor.h"
#include "platform/vel/Type.h"
#include "platform/vel/Value.h"
