#pragma once
// Everything the Zet entity framework offers.

#include "Zet/Entity.h"
#include "Zet/EntityUri.h"
#include "Zet/Exception.h"
#include "Zet/Format.h"
#include "Zet/HashMap.h"
#include "Zet/Introspection.h"
#include "Zet/LinkQueue.h"
#include "Zet/MemberCollection.h"
#include "Zet/Notifiee.h"
#include "Zet/Ptr.h"
#include "Zet/String8.h"
#include "Zet/Trace.h"
#include "Zet/TypeDescriptor.h"
#include "Zet/TypeMap.h"
#include "Zet/Value.h"
#include "Zet/Version.h"
