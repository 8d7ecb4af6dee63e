/** @file
 *  Includes all headers of libkvo_hws.so.0.
 *
 *  Threads: any thread may call a function at any time, unless the function's comment says otherwise. A process exchanges one
 *  request at a time: a request holds the exchange lock from the connect until the reply is read, so a slow service delays
 *  every thread that sends a request. The timeout for a reply is 4 s. It restarts with each byte that arrives, and with each
 *  signal handler that runs in the waiting thread. The length of a reply is limited only to 4 GiB. After fork() the child
 *  must not call the library before exec().
 *
 *  Cancellation: pthread_cancel interrupts neither a wait inside the library nor a callback that the library calls. If
 *  pthread_cancel was called for a thread with the usual, deferred cancellation type, before or during a call, the function
 *  still returns its usual result, and the thread ends at the next cancellation point in the program's own code.
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
