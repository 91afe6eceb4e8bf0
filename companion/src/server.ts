import { writeSync } from "node:fs";
import { chmod } from "node:fs/promises";
import { createServer, type Server } from "node:http";
import { homedir } from "node:os";
import { join } from "node:path";
import * as localAnalyser from "./analysis/localAnalyser.ts";
import { loadRules } from "./analysis/userRules.ts";
import { createApp } from "./app.ts";
import { ArchiveSlot } from "./archive/archiveSlot.ts";
import { openArchive } from "./archive/openArchive.ts";
import { systemClock } from "./base/clock.ts";
import { describeFailure } from "./base/failure.ts";
import { makeFolder } from "./base/makeFolder.ts";
import { type Analyst, asAnalyser } from "./engine/analyser.ts";
import { Journals } from "./engine/journals.ts";
import { bulletKey } from "./journal/journalWriter.ts";
import { LifeSigns } from "./observer/lifeSigns.ts";
import { Observer } from "./observer/observer.ts";
import { PrivacyFile } from "./privacy/privacyFile.ts";
import { exitCodes } from "./process/exitCodes.ts";
import { listen } from "./process/listen.ts";
import { watchParent } from "./process/parentWatch.ts";
import { keepHeapSmall } from "./process/smallHeap.ts";
import { isPipe, parseSecrets, readStandardInput } from "./process/standardInput.ts";
import { StateLock, type Unlock } from "./process/stateLock.ts";
import { chatProtocol } from "./providers/chat.ts";
import { ModelAnalyst } from "./providers/modelAnalyst.ts";
import { ServiceAccounts } from "./providers/serviceAccount.ts";
import { UsageLedger } from "./providers/usage.ts";
import { vertexProtocol } from "./providers/vertex.ts";
import { loadSettings } from "./settings/loadSettings.ts";
import { readAnalysisLimits } from "./settings/ownSettings.ts";
import { SettingsInUse } from "./settings/settingsInUse.ts";
import { realDisk } from "./spool/disk.ts";
import { SpoolLayout } from "./spool/layout.ts";
import { defaultQuotaBytes } from "./spool/pictureStore.ts";

/** A predecessor that is closing holds the lock and the port for a moment. */
const lockPatienceMs = 10_000;
const portPatienceMs = 5_000;
/** How long the first line of standard input may keep the analysis waiting. */
const secretsPatienceMs = 2_000;
/** The application gives up a request after 60 s. */
const bodyDeadlineMs = 120_000;
/** How long requests in progress may take to end by themselves, and how long everything may. */
const requestGraceMs = 1_000;
const closingPatienceMs = 5_000;

class StartFailure extends Error {
  readonly exitCode: number;

  constructor(exitCode: number, message: string) {
    super(message);
    this.exitCode = exitCode;
  }
}

/**
 * Not by the stream of the standard error: that ends the program when the log can't be written, and
 * a full disk or a reader that is gone is when the frames need it most.
 */
function say(sentence: string): void {
  try {
    writeSync(2, `observer: ${sentence}\n`);
  } catch {
    // There is nobody left to tell.
  }
}

function takeToken(): string {
  const token = process.env["OSTREL_LOCAL_API_TOKEN"] ?? "";
  delete process.env["OSTREL_LOCAL_API_TOKEN"];
  if (token !== "") return token;
  throw new StartFailure(exitCodes.noToken, "OSTREL_LOCAL_API_TOKEN is not set.");
}

async function lockStateFolder(folder: string): Promise<Unlock> {
  let unlock: Unlock | undefined;
  try {
    await makeFolder(folder);
    await chmod(folder, 0o700);
    unlock = await StateLock.acquire(folder, systemClock, lockPatienceMs);
  } catch (error) {
    const why = describeFailure("The state folder can't be used", error);
    throw new StartFailure(exitCodes.stateFolderUnusable, `${why}.`);
  }
  if (unlock !== undefined) return unlock;
  throw new StartFailure(exitCodes.stateFolderLocked, `Another observer is at work on ${folder}.`);
}

function modelAnalyst(layout: SpoolLayout, home: string, settings: SettingsInUse): Analyst {
  const accounts = new ServiceAccounts(systemClock, home);
  return new ModelAnalyst({
    settings,
    home,
    layout,
    clock: systemClock,
    usage: new UsageLedger(realDisk, layout.usageFile, systemClock),
    limits: () => readAnalysisLimits(layout.ownSettingsFile),
    protocolOf: (provider) =>
      provider.kind === "chat" ? chatProtocol(provider) : vertexProtocol(provider, accounts),
  });
}

async function openObserver(
  folder: string,
  home: string,
  settings: SettingsInUse,
  archive: ArchiveSlot,
) {
  const journals = new Journals();
  const layout = new SpoolLayout(folder);
  const privacy = new PrivacyFile(join(home, ".ostrel", "privacy.json"));
  const { rules, complaint } = await loadRules(join(folder, "rules.json"));
  try {
    return await Observer.open({
      settings,
      home,
      bulletKey,
      disk: realDisk,
      layout,
      clock: systemClock,
      random: Math.random,
      analyser: asAnalyser("local", localAnalyser.analyserWith(rules)),
      analyst: modelAnalyst(layout, home, settings),
      rulesComplaint: complaint,
      finishedChunks: archive,
      onGap: say,
      quotaBytes: defaultQuotaBytes,
      appendToJournal: (...entry) => journals.append(...entry),
      forgetInJournal: (...place) => journals.forget(...place),
      forgetInArchive: (range) => archive.forget(range),
      privacyRules: () => privacy.rules(),
    });
  } catch (error) {
    const why = describeFailure("The state folder can't be used", error);
    throw new StartFailure(exitCodes.stateFolderUnusable, `${why}.`);
  }
}

function usablePort(port: number | bigint): number {
  const number = Number(port);
  if (number >= 1 && number <= 65535) return number;
  throw new StartFailure(exitCodes.unusablePort, `${port} is not a port; see localPort.`);
}

async function openServer(
  observer: Observer,
  archive: ArchiveSlot,
  token: string,
  port: number,
): Promise<Server> {
  const lifeSigns = new LifeSigns(systemClock, observer);
  const app = createApp({
    observer,
    archive: () => archive.api,
    onRequest: () => lifeSigns.sign(),
    token,
    bodyDeadlineMs,
    port: () => port,
    onUnexpected: (error) => say(error instanceof Error ? (error.stack ?? "") : String(error)),
  });
  // Bodies have a deadline of their own. Idle connections outlast the application's longest pause
  // between two batches, so that it never sends one down a connection that is just closing.
  const server = createServer({ requestTimeout: 0, keepAliveTimeout: 65_000 }, app);
  if (await listen(server, port, systemClock, portPatienceMs)) return server;
  throw new StartFailure(exitCodes.portTaken, `Port ${port} is in use by another program.`);
}

/** Becomes wanted once; the sentence says why. Before anything is served it ends the process. */
class EndOfService {
  readonly #wanted: Promise<string>;
  #want: (why: string) => void = () => {};
  #isServing = false;

  constructor() {
    this.#wanted = new Promise((resolve) => {
      this.#want = resolve;
    });
    for (const signal of ["SIGTERM", "SIGINT", "SIGHUP"] as const) {
      process.on(signal, () => this.#want(`received ${signal}`));
    }
    void this.#wanted.then((why) => {
      say(`ending: ${why}`);
      // A start waits for the lock and the port; what it has touched a later start puts right.
      if (!this.#isServing) process.exit(exitCodes.orderly);
    });
  }

  /** From now on whoever waits for this ends the service in order. */
  wanted(): Promise<string> {
    this.#isServing = true;
    return this.#wanted;
  }

  want(why: string): void {
    this.#want(why);
  }
}

function readSecrets(end: EndOfService, onLine: (line: string | undefined) => void): void {
  const holdsParent = isPipe(0);
  readStandardInput(process.stdin, onLine, () => {
    if (holdsParent) end.want("standard input has ended");
  });
}

/** Whoever only asks what would be sent, or has something forgotten, wants nothing sent meanwhile. */
const holdsAnalysis = process.env["OSTREL_HOLD_ANALYSIS"] === "1";

function takeSecrets(observer: Observer, firstLine: Promise<string | undefined>): void {
  const begin = () => {
    if (!holdsAnalysis) observer.beginAnalysis();
  };
  const cancel = systemClock.after(secretsPatienceMs, begin);
  void firstLine.then((line) => {
    cancel();
    const secrets = line === undefined ? undefined : parseSecrets(line);
    if (secrets !== undefined) observer.applySecrets(secrets);
    else if (line !== undefined) say("The first line on standard input holds no secrets.");
    begin();
  });
}

function watchOurParent(end: EndOfService): void {
  const pid = process.env["OSTREL_PARENT_PID"] ?? "";
  if (!/^[0-9]{1,10}$/.test(pid)) return;
  watchParent(Number(pid), systemClock, () => end.want(`the parent ${pid} is gone`));
}

/** What is acknowledged is durable already; this ends the session and what is being worked on. */
async function close(server: Server, observer: Observer, archive: ArchiveSlot): Promise<void> {
  server.close();
  server.closeIdleConnections();
  const cut = systemClock.after(requestGraceMs, () => server.closeAllConnections());
  await observer.close();
  await archive.close();
  cut();
  server.closeAllConnections();
}

async function serve(end: EndOfService, token: string): Promise<void> {
  const home = process.env["HOME"] || homedir();
  const firstLine = new Promise<string | undefined>((resolve) => readSecrets(end, resolve));
  watchOurParent(end);
  const folder = join(home, ".ostrel", "observer");
  const unlock = await lockStateFolder(folder);
  try {
    const settings = new SettingsInUse(await loadSettings(home));
    const port = usablePort(settings.record.localPort);
    const archive = await ArchiveSlot.open((onComplaint) =>
      openArchive(folder, home, process.env, onComplaint),
    );
    settings.tellArchive(() => archive.settings);
    const observer = await openObserver(folder, home, settings, archive);
    archive.tellTo((...complaint) => observer.complain(...complaint));
    const server = await openServer(observer, archive, token, port);
    say(`listening on 127.0.0.1:${port}`);
    takeSecrets(observer, firstLine);
    await end.wanted();
    systemClock.after(closingPatienceMs, () => process.exit(exitCodes.orderly));
    await close(server, observer, archive);
  } finally {
    await unlock();
  }
}

async function main(): Promise<number> {
  keepHeapSmall();
  // Frames and journal are for this user's eyes only, whatever the shell's mask.
  process.umask(0o077);
  const end = new EndOfService();
  try {
    await serve(end, takeToken());
    return exitCodes.orderly;
  } catch (error) {
    if (error instanceof StartFailure) {
      say(error.message);
      return error.exitCode;
    }
    say(error instanceof Error ? (error.stack ?? error.message) : String(error));
    return exitCodes.unexpected;
  }
}

process.exit(await main());
