// Words that differ between a run that is over and agents that are running.

const RUN = { running: "running", stopped: "stopped", drops: "Drops of the whole run" };

/** An RP that stays in use until the present BSR names its range. */
export const KEPT = "kept of a former BSR";

/** A zone of which a router has received no message and for which it is no candidate. */
export const UNKNOWN = "zone not known";

export const WORDS = {
  simulation: { ...RUN, marks: "Statements", markRow: "statements", neighbor: "" },
  replay: { ...RUN, marks: "Capture", markRow: "capture", neighbor: "sender of messages in the capture" },
  live: {
    running: "answers", stopped: "does not answer", asked: "asked", drops: "Drops since the last clear",
    marks: "Agents", markRow: "agents", neighbor: "neighbor that is no agent of this page",
  },
};
