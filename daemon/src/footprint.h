/*
 * The daemon's resident memory after start-up (see footprint.cpp).
 */
#ifndef KERV_FOOTPRINT_H
#define KERV_FOOTPRINT_H

/* Drops the daemon's mappings of library and program pages that hold nothing but their
   file's bytes, once start-up is over (start_barrier.h). Whatever the daemon still uses
   comes back on its first touch. */
void kerv_release_start_up_pages();

#endif /* KERV_FOOTPRINT_H */
