#!/usr/bin/env python3
"""check.py make SHARE: the waves and the cases. check.py table RUNS CARD…: what was heard of them.

A case is played behind a mark, so that a recording falls into as many pieces as there were cases.
The numbered wave says which of its frames was heard: left has frame % 30000 + 1, right how often
that began anew, from 1 on. The level wave is one value throughout: ramps, steps and old sound show.
"""
import array
import itertools
import sys
import wave
from pathlib import Path

RATE, MARK, MARK_FRAMES, LEVEL = 48000, -32000, 4800, 10000
FRAMES, SHORT_FRAMES = 10 * RATE, RATE * 5 // 4
FADE_MS = 5
ENGINES = ("dx9", "dx7", "waveout")

# What is done with a wave: commands of `waveplay script` behind its hand-over.
DONE = {
    "forward": "PlayAgain\nwait-stop",
    "reverse": "PlayAgainRev\nwait-stop",
    "pause": "PlayAgain\nwait 1000\nPlayPause\nwait 500\nPlayContinue\nwait 700\nStopPlay\nwait 500",
    "turn": "PlayAgain\nwait 1500\nPlayUTurn\nwait-stop",
    "stop": "PlayAgain\nwait 1000\nStopPlay\nwait 500",
    "frozen": "PlayAgain\nwait 16000\nStopPlay\nwait 500",
}


def write_wav(path, frames):
    with wave.open(str(path), "wb") as out:
        out.setparams((2, 2, RATE, 0, "NONE", ""))
        out.writeframes(array.array("h", itertools.chain.from_iterable(frames)).tobytes())


def case(name, engine, fade, wave_name, pcm="hw:0"):
    """A shell script; `frozen` is stopped for ten seconds in the middle."""
    play = f"waveplay script - --clock real --device alsa:{pcm} --engine {engine} --fade {fade}"
    script = f"DxObj 1\\nload {wave_name}.wav\\n" + DONE[name].replace("\n", "\\n") + "\\n"
    if name != "frozen":
        return f"printf '{script}' | {play}\n"
    return (f"printf '{script}' | {play} --in-process &\nsleep 2\nkill -STOP $!\nsleep 10\n"
            "kill -CONT $!\nwait $!\n")


def cases():
    for engine in ENGINES:
        for name in ("forward", "reverse", "pause", "turn"):
            yield f"{engine}-{name}", case(name, engine, 0, "numbered")
        for name in ("stop", "pause"):
            yield f"{engine}-{name}-faded", case(name, engine, FADE_MS, "level")
        yield f"{engine}-end", case("forward", engine, FADE_MS, "short")
        yield f"{engine}-frozen", case("frozen", engine, FADE_MS, "numbered")
    for name in ("pause", "turn"):  # a ring that others may play into
        yield f"dmix-{name}", case(name, "dx9", 0, "numbered", "plug:dmix:0")
    yield "dmix-pause-faded", case("pause", "dx9", FADE_MS, "level", "plug:dmix:0")
    yield "aplay", "aplay -q -D hw:0 numbered.wav\n"


def make(share):
    write_wav(share / "mark.wav", [(MARK, MARK)] * MARK_FRAMES)
    write_wav(share / "numbered.wav", [(i % 30000 + 1, i // 30000 + 1) for i in range(FRAMES)])
    write_wav(share / "level.wav", [(LEVEL, LEVEL)] * FRAMES)
    write_wav(share / "short.wav", [(LEVEL, LEVEL)] * SHORT_FRAMES)
    (share / "cases").mkdir(exist_ok=True)
    for name, text in cases():
        (share / "cases" / name).write_text(text)


def read_frames(path):
    # The emulator never goes back to write the lengths into the header.
    samples = array.array("h", path.read_bytes()[44:][: (path.stat().st_size - 44) // 4 * 4])
    return list(zip(samples[::2], samples[1::2]))


def pieces(frames):
    """What was heard between one mark and the next."""
    piece, marked = [], 0
    for frame in frames:
        if frame == (MARK, MARK):
            marked += 1
            if marked == MARK_FRAMES // 2:
                yield piece
                piece = []
        elif marked < MARK_FRAMES // 2 or frame != (0, 0) or piece:
            marked = 0 if marked < MARK_FRAMES // 2 or frame != (0, 0) else marked
            if marked == 0:
                piece.append(frame)
    yield piece


def runs(piece):
    """(first, last) of the numbers that were heard one behind the other, whether there was silence
    in between or not: an emulated card that stands still writes none."""
    found = []
    for left, right in piece:
        if left == 0 and right == 0:
            continue
        number = (right - 1) * 30000 + left - 1
        if found:
            first, last = found[-1]
            step = number - last
            if abs(step) == 1 and (first == last or (last > first) == (step > 0)):
                found[-1] = (first, number)
                continue
        found.append((number, number))
    return found


def expect_runs(piece, name):
    heard = runs(piece)
    last = FRAMES - 1
    if name == "pause":
        fine = len(heard) == 1 and heard[0][0] == 0
    elif name == "turn":
        fine = len(heard) == 2 and heard[0][0] == 0 and heard[1] == (heard[0][1], 0)
    else:
        fine = heard == [(last, 0) if name == "reverse" else (0, last)]
    return fine, " ".join(f"{first}..{end}" for first, end in heard[:6])


def level_runs(piece):
    """Lengths of sound and silence in turns, and the largest step from frame to frame."""
    values = [left for left, _ in piece]
    step = max((abs(b - a) for a, b in zip([0] + values, values + [0])), default=0)
    lengths = [(sounds, len(list(group))) for sounds, group in itertools.groupby(values, bool)]
    return [length for sounds, length in lengths if sounds], step


def expect_level(piece, sounds_wanted):
    sounds, step = level_runs(piece)
    most = LEVEL // (RATE * FADE_MS // 1000) + 60  # a ramp's, with room for its rounding
    text = f"sounds {' '.join(map(str, sounds[:6]))}, largest step {step}"
    return len(sounds) == sounds_wanted and step <= most, text


def expect_end(piece):
    """The wave ends with a step of its own; nothing may sound behind it."""
    sounds, _ = level_runs(piece)
    return sounds == [SHORT_FRAMES], f"sounds {' '.join(map(str, sounds[:6]))}"


def expect_frozen(piece, told):
    """The play goes on where the card had to stop. The ramp at its beginning is no number."""
    heard = [run for run in runs(piece) if abs(run[1] - run[0]) > 100]
    joined = all(after[0] == before[1] + 1 for before, after in zip(heard, heard[1:]))
    fine = '"Play Failed"' not in told and joined and bool(heard) and heard[-1][1] > 5 * RATE
    return fine, " ".join(f"{first}..{last}" for first, last in heard)


def judge(name, piece, told):
    if name == "aplay":
        fine, text = expect_runs(piece, "forward")
        return fine or text.startswith(f"0..{FRAMES - 1} "), text + " (what aplay does is no fault here)"
    if name.endswith("-frozen"):
        return expect_frozen(piece, told)
    if name.endswith("-end"):
        return expect_end(piece)
    if name.endswith("-faded"):
        return expect_level(piece, 2 if "pause" in name else 1)
    return expect_runs(piece, name.split("-")[1])


def table(folder, cards):
    failed = 0
    for card in cards:
        at = folder / card
        names = sorted(path.stem for path in (at / "out").glob("*.out"))
        heard = list(pieces(read_frames(at / "heard.wav")))[1:]
        for name, piece in itertools.zip_longest(names, heard[:len(names)]):
            told = (at / "out" / f"{name}.out").read_text()
            fine, text = judge(name, piece or [], told)
            failed += not fine
            print(f"{card:6} {name:24} {'ok' if fine else 'FAILED':7} {text}")
        if not names:
            failed += 1
            print(f"{card:6} {'the machine':24} FAILED  see {at}/console.log")
    return failed == 0


if __name__ == "__main__":
    if sys.argv[1] == "make":
        make(Path(sys.argv[2]))
    else:
        sys.exit(not table(Path(sys.argv[2]), sys.argv[3:]))
