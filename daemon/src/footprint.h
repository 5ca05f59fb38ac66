/*
 * The daemon's resident memory after start-up (see footprint.cpp).
 */
#ifndef KERV_FOOTPRINT_H
#define KERV_FOOTPRINT_H

/* Called by each of the daemon's threads once its own set-up is over and it is about to
   wait for its first work. */
void kerv_thread_settled();
/*
 * Waits until `threads` threads have settled (a second at most: a thread that failed its
 * set-up does not hold this up), then drops the daemon's mappings of library and program
 * pages that hold nothing but their file's bytes. Whatever the daemon still uses comes back
 * on its first touch.
 */
void kerv_release_start_up_pages(int threads);

#endif /* KERV_FOOTPRINT_H */
