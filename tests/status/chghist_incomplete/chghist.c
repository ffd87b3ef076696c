/* SPDX-License-Identifier: Apache-2.0 */
/* A change-history library without the function that takes rows. */
int another_function(void);
int another_function(void) { return 0; }
