// Who may talk to the viewer: whoever knows the token that it printed, and addresses it as itself.

import { createHash, randomBytes, timingSafeEqual } from 'node:crypto';

const tokenBytes = 24;
const names = ['127.0.0.1', 'localhost'];

const digest = (text) => createHash('sha256').update(text).digest();

/** The value of one cookie in a Cookie header, or null. */
export function readCookie(header, name) {
  const pair = (header ?? '').split(';').map((part) => part.trim()).find((part) => part.startsWith(`${name}=`));
  return pair === undefined ? null : pair.slice(name.length + 1);
}

/** Decides on requests, before anything of them is used. */
export class Access {
  /** `port`: of the server; cookies are shared between the ports of a host, so theirs are named by it. */
  constructor(port, token = randomBytes(tokenBytes).toString('base64url')) {
    this.token = token;
    this.tokenDigest = digest(token);
    this.cookieName = `ostrel-viewer-${port}`;
    this.hosts = names.map((name) => `${name}:${port}`);
    // Port 80 goes without saying.
    if (port === 80) {
      this.hosts.push(...names);
    }
  }

  get cookie() {
    return `${this.cookieName}=${this.token}; HttpOnly; SameSite=Strict; Path=/`;
  }

  /** Compares in a time that tells nothing of the token. */
  isToken(text) {
    return typeof text === 'string' && timingSafeEqual(digest(text), this.tokenDigest);
  }

  /**
   * Whether a request was meant for this server: another site's name that was made to lead here
   * shows in Host, another site's script in Origin.
   */
  isOwnAddress({ host, origin }) {
    return this.hosts.includes(host) &&
      (origin === undefined || this.hosts.some((own) => origin === `http://${own}`));
  }

  /** Whether a request carries the token, in its address or in its cookie. */
  hasToken(url, headers) {
    return this.isToken(url.searchParams.get('token')) || this.isToken(readCookie(headers.cookie, this.cookieName));
  }
}
