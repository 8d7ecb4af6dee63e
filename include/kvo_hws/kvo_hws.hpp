/** @file
 *  The C++ interface: includes all of it. Header-only; needs C++17 and nothing but the standard library, and works with and
 *  without exceptions and RTTI. Link the library as a program in C does.
 *
 *  Threads: any thread may call a function at any time, but an object may be used in one thread at a time, unless its comment
 *  says otherwise. As in C, a process exchanges one request at a time, so a slow service delays every thread that sends one.
 *  A program with an event loop uses kvo::Requests, which never delays the loop.
 *
 *  Shared objects: a process has one server of USB events, one listener for embedded events and one agent, whichever of its
 *  shared objects uses them. A plugin that includes this header must stay loaded until the process ends, because threads of the
 *  library may still call into it; link it with "-z nodelete".
 *
 *  Fork: after fork(), the child must not call the library before exec(), and must not destroy these objects.
 */
#ifndef KVO_HWS_KVO_HWS_HPP
#define KVO_HWS_KVO_HWS_HPP

#include <kvo_hws/address.hpp>
#include <kvo_hws/agent.hpp>
#include <kvo_hws/embedded_events.hpp>
#include <kvo_hws/requests.hpp>
#include <kvo_hws/result.hpp>
#include <kvo_hws/service.hpp>
#include <kvo_hws/station.hpp>
#include <kvo_hws/usbevents.hpp>
#include <kvo_hws/values.hpp>
#include <kvo_hws/version.h>

#endif
