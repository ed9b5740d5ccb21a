// General functions: the last error text and the exclusive lock file.

/** Functions that are not specific to cameras or microscopes. */
export interface AddonFunctions {
  /**
   * The text of the last failure of any camera or device function; empty if there was none.
   *
   * There is one text for the whole process, worker threads included. Reading it does not clear it, nor
   * does a success, unless that function's documentation says so. Read it right after the call that
   * failed: a later failure elsewhere replaces it. Fusion and locks throw instead and do not change it.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: read only.
   */
  getLastError(): string;

  /**
   * Creates a file that must not exist yet and locks it, so that only one process at a time holds the lock.
   *
   * The file's existence is the lock: a file left by a crashed process counts as locked until
   * script code deletes it.
   *
   * @param path the path of the lock file.
   * @returns the file descriptor, which is the token for {@link unlockFile}.
   * @throws Error "lockFile requires a path argument" for a path that is empty or no string;
   *   "LOCK_FILE_EXISTS" if the file exists or is locked; "Failed to open lock file: PATH (errno N)" and
   *   "Failed to flock lock file: PATH (errno N)" with the system's number otherwise.
   *
   * - Blocks: for two system calls; it never waits for a lock.
   * - Thread: any environment.
   * - Error text: not set, failures are thrown.
   */
  lockFile(path: string): number;

  /**
   * Unlocks and closes the descriptor from {@link lockFile}. Call it once: the number may be reused for another file
   * afterwards. The lock file remains; the lock cannot be taken again until it is deleted.
   *
   * @param descriptor the number from {@link lockFile}. A negative one does nothing. Without a number the
   *   process's standard input, descriptor 0, is closed: always pass the number.
   *
   * - Blocks: for two system calls.
   * - Thread: any environment.
   * - Error text: not set, failures are ignored.
   */
  unlockFile(descriptor: number): void;
}
