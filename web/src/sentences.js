// One line for an event of the timeline.

import { timeText } from "./axis.js";

function bsrText(bsr) {
  return `${bsr.address}, priority ${bsr.priority}`;
}

function rpText(rp) {
  return `${rp.address} for ${rp.range}, priority ${rp.priority}, holdtime ${rp.holdtime} s`;
}

const KINDS = { bsm: "BSM", crpAdv: "C-RP-Adv", hello: "Hello" };

function kindOf(event) {
  return KINDS[event.message] || event.message;
}

const SENTENCES = {
  bsrElected: (event) => `BSR ${bsrText(event.bsr)}`,
  bsrChanged: (event) =>
    `BSR ${bsrText(event.bsr)}; was ${event.formerBsr ? bsrText(event.formerBsr) : "another"}`,
  bsrLost: (event) => `BSR ${event.bsr ? event.bsr.address : ""} lost`,
  rpAdded: (event) => `RP added: ${rpText(event.rp)}`,
  rpUpdated: (event) => `RP updated: ${rpText(event.rp)}`,
  rpKept: (event) => `RP kept: ${rpText(event.rp)}`,
  rpRemoved: (event) => `RP removed: ${event.rp.address} for ${event.rp.range}`,
  rpExpired: (event) => `RP expired: ${event.rp.address} for ${event.rp.range}`,
  rpSetChanged: () => "several RPs changed",
  agentStarted: () => "the agent started",
  agentStopped: () => "the agent stopped",
  zoneForgotten: () => "zone forgotten",
  candidateState: (event) => `candidacy: ${event.state}`,
  accepted: (event) => `${kindOf(event)} from ${event.sender} accepted`,
  partlyAccepted: (event) => `${kindOf(event)} from ${event.sender} partly accepted: ${event.reason}`,
  dropped: (event) => `${kindOf(event)} from ${event.sender} dropped: ${event.reason}`,
  sent: (event) => `${kindOf(event)} sent on ${event.link}`,
  neighborUp: (event) => `neighbor ${event.neighbor} on ${event.link}`,
  neighborDown: (event) => `neighbor ${event.neighbor} on ${event.link} lost`,
  designatedRouter: (event) => `designated router on ${event.link}: ${event.dr || "none"}`,
  lost: (event) => `${kindOf(event)} lost on ${event.link}: ${event.reason}`,
};

export function sentenceOf(event) {
  const sentence = SENTENCES[event.event];
  return sentence ? sentence(event) : event.event;
}

const MAX_STATEMENT = 160; // characters; a partition names hundreds of routers

/** A statement without the rest of a long list. */
export function shortened(text) {
  if (text.length <= MAX_STATEMENT) return text;
  const words = text.split(" ");
  const kept = text.slice(0, MAX_STATEMENT).split(" ").length - 1;
  return `${words.slice(0, kept).join(" ")} … and ${words.length - kept} more`;
}

export function timedSentence(event) {
  return `${timeText(event.time)}: ${sentenceOf(event)}`;
}
