/*
 * The end of start-up: main waits until the daemon's threads have done their own set-up and
 * are about to wait for their first work. What was touched until then is start-up's, and
 * what is touched from then on is serving's (footprint.h).
 */
#ifndef KERV_START_BARRIER_H
#define KERV_START_BARRIER_H

/* Called by each of the daemon's threads once its own set-up is over. */
void kerv_thread_settled();
/* Waits until `threads` threads have settled, or a second has passed (a thread that failed
   its set-up does not hold start-up up). */
void kerv_wait_for_settled(int threads);

#endif /* KERV_START_BARRIER_H */
