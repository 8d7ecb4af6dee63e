/** @file
 *  The whole interface of libkvo_hws.so.0, for programs that do not want to choose.
 *
 *  Threads: unless a function's comment says otherwise, any thread may call it at any time. One request is exchanged at a
 *  time in a process: the exchange lock is held from the connect until the reply is read, so a slow service delays every
 *  thread that asks. The 4 s that a reply may take start anew with each byte that arrives, and with each signal handler
 *  that runs in the waiting thread. A reply has no upper limit but 4 GiB. After fork() a child calls nothing of the library
 *  before exec().
 *
 *  Cancellation: a wait inside the library cannot be cancelled, nor can a callback that the library calls. A thread of the
 *  usual, deferred cancellation type for which pthread_cancel was called, before or meanwhile, comes back from each function
 *  with its usual result, and ends at the next cancellation point of the program's own.
 */
#ifndef KVO_HWS_KVO_HWS_H
#define KVO_HWS_KVO_HWS_H

#include <kvo_hws/agent.h>
#include <kvo_hws/codecs.h>
#include <kvo_hws/config.h>
#include <kvo_hws/requests.h>
#include <kvo_hws/result.h>
#include <kvo_hws/runtime.h>
#include <kvo_hws/service.h>
#include <kvo_hws/usbevents.h>
#include <kvo_hws/version.h>

#endif
