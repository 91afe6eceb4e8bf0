/** The codes of the API's error answers with their HTTP status. Clients rely on both. */
export const errorStatus = {
  invalidJson: 400,
  bodyCutOff: 400,
  unauthorized: 401,
  foreignHost: 403,
  foreignOrigin: 403,
  unknownRoute: 404,
  methodNotAllowed: 405,
  bodyTimeout: 408,
  notRecording: 409,
  archiveNotReady: 409,
  bodyTooLarge: 413,
  invalidRecord: 422,
  recoveryKeyWrong: 422,
  internal: 500,
  diskFailed: 500,
  archiveUnreachable: 502,
  shuttingDown: 503,
  keyringRefused: 503,
  diskFull: 507,
} as const;
export type ErrorCode = keyof typeof errorStatus;

/** An answer other than 2xx: `{"error":{"code","message","path"}}`. */
export class RequestError extends Error {
  override readonly name = "RequestError";
  readonly code: ErrorCode;
  /** The field at fault. */
  readonly path: string | undefined;

  constructor(code: ErrorCode, message: string, path?: string) {
    super(message);
    this.code = code;
    this.path = path;
  }

  get status(): number {
    return errorStatus[this.code];
  }

  get body(): unknown {
    return { error: { code: this.code, message: this.message, path: this.path } };
  }
}
