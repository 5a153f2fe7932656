"""Mistakes that this client makes on request, so that whoever judges clients can be judged."""

FAULTS = {
    "asks-from-the-wrong-number": "asks for one message too many whenever it comes back",
    "counts-a-fill-twice": "adds up twice what a replay tells of executions",
    "forgets-fills-on-replay": "takes fills for news only when they arrive live",
    "never-heartbeats": "says nothing while it has nothing to say",
    "skips-gaps": "goes on behind a hole of the feed as if nothing were missing",
}
