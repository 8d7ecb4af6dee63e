/** @file
 *  Includes all headers of libkvo_hws.so.0.
 *
 *  Threads: any thread may call a function at any time, unless the function's comment says otherwise. A process exchanges one
 *  request at a time. A lock protects the exchange from the connect until the reply has been read. Therefore a slow service
 *  delays every thread that sends a request.
 *
 *  Replies: the timeout for a reply is 4 s. It restarts with each byte that arrives, and with each signal handler that runs in
 *  the waiting thread. A reply may be up to 4 GiB long.
 *
 *  Fork: after fork(), the child must not call the library before exec().
 *
 *  Cancellation: pthread_cancel interrupts neither a wait inside the library nor a callback that the library calls. If
 *  pthread_cancel is called before or during a call of the library, for a thread with the usual, deferred cancellation type,
 *  the function still returns its usual result. The thread ends at the next cancellation point in the program's own code.
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
