// The addon's frame: the last error text and the exclusive lock file.

/** The functions that belong to no camera and to no microscope. */
export interface AddonFunctions {
  /**
   * The text of the last failure, of whatever camera or device function; empty if there was none.
   *
   * There is one text for the whole process, worker threads included. Reading it does not clear it, and
   * neither does a success, unless the function that succeeds says so. Read it right after the call that
   * failed: a later failure elsewhere replaces it. Fusion and locks throw instead and leave it alone.
   *
   * - Blocks: no.
   * - Thread: any environment.
   * - Error text: read only.
   */
  getLastError(): string;

  /**
   * Creates a file that must not exist yet and locks it, so that one process at a time may go on.
   *
   * The file alone stands for the lock: one that a crashed process has left means "taken" too, until
   * script code deletes it.
   *
   * @param path where the lock file is to be.
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
   * Unlocks and closes what {@link lockFile} gave, once: its number may stand for another file of the process afterwards.
   * The lock file stays: delete it, or nobody gets the lock again.
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
