// What the page knows: passports, cameras, desk, told lines. Bounded, so that a page may stay open
// for days.

export const max_passports = 300;
const max_told = 200;

export class DeskState {
  passports = new Map();
  /// By serial number, which may be any text.
  cameras = Object.create(null);
  /// By serial number, as all that come from the console: {per_minute, plate, plate_at_us} of
  /// cameras of which a result has come.
  recent = Object.create(null);
  desk = {};
  told = [];
  connected = false;
  /// Serial number of the camera that is looked at; null without one.
  chosen = null;

  #listeners = new Set();
  #drawer = () => {};
  #due = false;
  #sorted = null;
  #serial_numbers = [];
  #clock_offset_ms = 0;

  /// `draw` is called before the next paint, once for all changes since the one before. A hidden
  /// page paints nothing.
  constructor(draw) {
    this.#drawer = draw;
    try {
      this.chosen = localStorage.getItem("camera");
    } catch {
      // storage may be forbidden
    }
  }

  apply(message) {
    if (message.type === "snapshot") {
      this.passports.clear();
      this.cameras = Object.create(null);
      this.recent = Object.create(null);
      this.told = [];
      this.connected = true;
    }
    for (const passport of message.passports ?? []) {
      this.passports.set(passport.id, passport);
      this.#sorted = null;
    }
    this.#forgetOldest();
    Object.assign(this.cameras, message.cameras);
    Object.assign(this.recent, message.recent);
    const serial_numbers = Object.keys(this.cameras);
    if (message.type === "snapshot" || serial_numbers.length !== this.#serial_numbers.length) {
      this.#serial_numbers = serial_numbers.sort();
    }
    if (message.desk) {
      this.desk = {...this.desk, ...message.desk};
      if (message.desk.now_us) {
        this.#clock_offset_ms = message.desk.now_us / 1000 - performance.now();
      }
    }
    if (message.told?.length) {
      const known = new Set(this.told.map((line) => line.n));
      this.told = [...this.told, ...message.told.filter((line) => !known.has(line.n))].slice(
        -max_told,
      );
    }
    if (!this.cameras[this.chosen]) {
      this.chosen = this.serialNumbers()[0] ?? this.chosen;
    }
    for (const listener of [...this.#listeners]) {
      listener();
    }
    this.changed();
  }

  setConnected(connected) {
    this.connected = connected && this.connected;
    this.changed();
  }

  choose(sn) {
    this.chosen = sn;
    try {
      localStorage.setItem("camera", sn);
    } catch {
      // it holds until the page is left
    }
    this.changed();
  }

  /// Has everything that is shown drawn again before the next paint.
  changed() {
    if (!this.#due) {
      this.#due = true;
      requestAnimationFrame(() => {
        this.#due = false;
        this.#drawer();
      });
    }
  }

  /// In order; another array only when there are others.
  serialNumbers() {
    return this.#serial_numbers;
  }

  camera() {
    return this.cameras[this.chosen] ?? null;
  }

  /// Whether the chosen camera is known from the broker only.
  isElsewhere() {
    return this.camera()?.on_desk === false;
  }

  /// All passports, or those of the chosen camera; the newest first.
  newest(only_chosen = true) {
    this.#sorted ??= [...this.passports.values()].sort(
      (a, b) => b.at_us - a.at_us || (a.id < b.id ? 1 : -1),
    );
    return only_chosen && this.chosen !== null
      ? this.#sorted.filter((passport) => passport.sn === this.chosen)
      : this.#sorted;
  }

  /// The host's clock, microseconds since 1970.
  nowUs() {
    return (performance.now() + this.#clock_offset_ms) * 1000;
  }

  /// Waits until a request has its answer, or until there is none after all. @return its passport,
  /// or null when nothing was heard of it in time.
  answered(id, patience_ms = 30000) {
    return new Promise((resolve) => {
      const look = () => {
        const passport = this.passports.get(id);
        if (passport && (passport.state === "answered" || passport.state === "unanswered")) {
          end(passport);
        }
      };
      const end = (passport) => {
        clearTimeout(timer);
        this.#listeners.delete(look);
        resolve(passport);
      };
      const timer = setTimeout(() => end(null), patience_ms);
      this.#listeners.add(look);
      look();
    });
  }

  #forgetOldest() {
    if (this.passports.size <= max_passports) {
      return;
    }
    for (const passport of this.newest(false).slice(max_passports)) {
      this.passports.delete(passport.id);
    }
    this.#sorted = null;
  }
}
