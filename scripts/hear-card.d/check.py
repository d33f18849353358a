#!/usr/bin/env python3
"""check.py make SHARE: the waves and the cases. check.py table RUNS CARD…: what was heard of them.

A case is played behind a mark, so that a recording falls into as many pieces as there were cases.
The numbered wave says which of its frames was heard: left has frame % 30000 + 1, right how often
that began anew, from 1 on. The level wave is one value throughout: ramps, steps and old sound show.
Waves of other rates than the recording's are sines, whose pitch and length are measured.
"""
import array
import itertools
import math
import sys
import wave
from pathlib import Path

RATE, MARK, MARK_FRAMES, LEVEL = 48000, -32000, 4800, 10000
FRAMES, SHORT_FRAMES = 10 * RATE, RATE * 5 // 4
FADE_MS = 5
ENGINES = ("dx9", "dx7", "waveout")
SINE_HZ, SINE_SECONDS = 1000, 2
DMIX_FRAMES = 72  # 1.5 ms
HELD_FRAMES = RATE * 60 // 1000  # of the player's latency
NARROW_FRAMES = 25000  # of the waves of one channel and of 8 bits

# What is done with a wave: commands of `waveplay script` behind its hand-over.
DONE = {
    "forward": "PlayAgain\nwait-stop",
    "reverse": "PlayAgainRev\nwait-stop",
    "pause": "PlayAgain\nwait 1000\nPlayPause\nwait 500\nPlayContinue\nwait 700\nStopPlay\nwait 500",
    "turn": "PlayAgain\nwait 1500\nPlayUTurn\nwait-stop",
    "stop": "PlayAgain\nwait 1000\nStopPlay\nwait 500",
    "frozen": "PlayAgain\nwait 16000\nStopPlay\nwait 500",
    "at": "PlayAtPos 150001\nwait-stop\nPlayAtPosRev 100000\nwait-stop",
    "turn-cut": "PlayAgain\nwait 1500\nPlayUTurn\nwait 700\nStopPlay\nwait 500",
    "at-cut": "PlayAtPos 150001\nwait 700\nPlayAtPosRev 100000\nwait 700\nStopPlay\nwait 500",
    "loops": "LoopPlayON 1\nPlayAtPos 400001\nwait 13000\nLoopPlayON 0\nwait-stop",
}


# What is done to the card while it plays: shell commands behind the start of the play.
BESIDE = {
    "frozen": "sleep 2\nkill -STOP $!\nsleep 10\nkill -CONT $!",
    "suspended": "sleep 2\necho mem >/sys/power/state",
    "lost": "sleep 2\ncard unbind\nsleep 2\ncard bind",
}


def write_wav(path, frames, rate=RATE, sample="h"):
    """frames: tuples of a sample a channel, of 16 bits (h) or 8 (B)."""
    frames = list(frames)
    with wave.open(str(path), "wb") as out:
        out.setparams((len(frames[0]), 2 if sample == "h" else 1, rate, 0, "NONE", ""))
        out.writeframes(array.array(sample, itertools.chain.from_iterable(frames)).tobytes())


def case(name, engine, fade, wave_name, pcm="hw:0"):
    """A shell script."""
    play = f"waveplay script - --clock real --device alsa:{pcm} --engine {engine} --fade {fade}"
    done = DONE.get(name, DONE["forward"]).replace("\n", "\\n")
    script = f"printf 'DxObj 1\\nload {wave_name}.wav\\n{done}\\n' | {play}"
    if name in BESIDE:
        return f"{script} --in-process &\n{BESIDE[name]}\nwait $!\n"
    return script + "\n"


def cases():
    for engine in ENGINES:
        for name in ("forward", "reverse", "pause", "turn", "at", "loops"):
            yield f"{engine}-{name}", case(name, engine, 0, "numbered")
        for name in ("stop", "pause", "turn-cut", "at-cut"):
            yield f"{engine}-{name}-faded", case(name, engine, FADE_MS, "level")
        yield f"{engine}-end", case("forward", engine, FADE_MS, "short")
        yield f"{engine}-frozen", case("frozen", engine, FADE_MS, "numbered")
        yield f"{engine}-suspended", case("suspended", engine, 0, "numbered")
        yield f"{engine}-lost", case("lost", engine, 0, "numbered")
    for rate in (8000, 44100, 96000):
        yield f"sine-{rate}", case("forward", "dx9", 0, f"sine-{rate}")
    for name in ("mono", "eight"):
        yield name, case("forward", "dx9", 0, name)
    yield "busy", "aplay -q -D hw:0 silence.wav &\nsleep 1\n" + case("forward", "dx9", 0, "numbered")
    for name in ("pause", "turn"):  # a ring that others may play into
        yield f"dmix-{name}", case(name, "dx9", 0, "numbered", "plug:dmix:0")
    yield "dmix-pause-faded", case("pause", "dx9", FADE_MS, "level", "plug:dmix:0")
    yield "aplay", "aplay -q -D hw:0 numbered.wav\n"


def make(share):
    write_wav(share / "mark.wav", [(MARK, MARK)] * MARK_FRAMES)
    write_wav(share / "numbered.wav", [(i % 30000 + 1, i // 30000 + 1) for i in range(FRAMES)])
    write_wav(share / "level.wav", [(LEVEL, LEVEL)] * FRAMES)
    write_wav(share / "short.wav", [(LEVEL, LEVEL)] * SHORT_FRAMES)
    write_wav(share / "silence.wav", [(0, 0)] * (4 * RATE))
    write_wav(share / "mono.wav", [(i + 1,) for i in range(NARROW_FRAMES)])
    write_wav(share / "eight.wav", [(byte,) for byte in eight_bits()], sample="B")
    for rate in (8000, 44100, 96000):
        write_wav(share / f"sine-{rate}.wav",
                  [(round(16000 * math.sin(2 * math.pi * SINE_HZ * i / rate)),) * 2
                   for i in range(SINE_SECONDS * rate)], rate)
    (share / "cases").mkdir(exist_ok=True)
    for name, text in cases():
        (share / "cases" / name).write_text(text)


def eight_bits():
    return [4 + i * 7 % 250 for i in range(NARROW_FRAMES)]


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


def expect_mixed(piece, name):
    """In a ring that others play into as well a cut is exact to DMIX_FRAMES."""
    heard = [run for run in runs(piece) if abs(run[1] - run[0]) > 2 * DMIX_FRAMES]
    back = -1 if name == "turn" else 1
    fine = bool(heard) and heard[0][0] == 0 and all(
        abs(after[0] - before[1]) <= DMIX_FRAMES and (after[1] - after[0]) * back > 0
        for before, after in zip(heard, heard[1:]))
    return fine, " ".join(f"{first}..{end}" for first, end in heard)


def expect_suspended(piece, told):
    """What the card held when it lost its power may be missing, and nothing else."""
    heard = [run for run in runs(piece) if abs(run[1] - run[0]) > 100]
    missing = [after[0] - before[1] - 1 for before, after in zip(heard, heard[1:])]
    fine = ('"Play Failed"' not in told and bool(heard) and heard[-1][1] == FRAMES - 1
            and all(0 <= frames <= HELD_FRAMES for frames in missing))
    return fine, " ".join(f"{first}..{last}" for first, last in heard)


def expect_runs(piece, name):
    heard = runs(piece)
    last = FRAMES - 1
    if name == "pause":
        fine = len(heard) == 1 and heard[0][0] == 0
    elif name == "turn":
        fine = len(heard) == 2 and heard[0][0] == 0 and heard[1] == (heard[0][1], 0)
    elif name == "at":
        fine = heard == [(150000, last), (99999, 0)]
    elif name == "loops":
        fine = len(heard) > 1 and heard == [(400000, last)] + [(0, last)] * (len(heard) - 1)
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
    return len(sounds) in sounds_wanted and step <= most, text


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


def expect_lost(piece, told, said):
    """Time goes on where the card is missing; what is due then is heard once it is there."""
    heard = [run for run in runs(piece) if abs(run[1] - run[0]) > 100]
    rising = all(after[0] > before[1] for before, after in zip(heard, heard[1:]))
    fine = rising and bool(heard) and heard[-1][0] > RATE and heard[-1][1] == FRAMES - 1
    text = " ".join(f"{first}..{last}" for first, last in heard)
    return fine and all(each in told for each in said), text


def expect_sine(piece, slack_hz):
    """The pitch, and the length as exactly."""
    values = [left for left, _ in piece]
    loud = [i for i, value in enumerate(values) if abs(value) > 1000]
    if not loud:
        return False, "silence"
    values = values[loud[0]:loud[-1] + 1]  # what rings at the edges is no part of it
    ups = [i + a / (a - b) for i, (a, b) in enumerate(itertools.pairwise(values)) if a < 0 <= b]
    hertz = (len(ups) - 1) / (ups[-1] - ups[0]) * RATE
    seconds = len(values) / RATE
    fine = abs(hertz - SINE_HZ) < slack_hz and abs(seconds - SINE_SECONDS) < 0.01 + 0.02 * (slack_hz > 1)
    return fine, f"{hertz:.2f} Hz, {seconds:.3f} s"


def expect_frames(piece, wanted):
    """These samples on both channels and nothing else; the card may be silent before and behind."""
    heard = [left for left, right in piece if left == right]
    wanted = list(itertools.dropwhile(lambda value: value == 0, wanted))
    heard = list(itertools.dropwhile(lambda value: value == 0, heard))
    fine = len(heard) >= len(wanted) and heard[:len(wanted)] == wanted and not any(heard[len(wanted):])
    alike = sum(a == b for a, b in zip(heard, wanted))
    return fine, f"{alike} of {len(wanted)} frames"


def judge(card, name, piece, told):
    if name == "busy":
        return expect_lost(piece, told, ["cannot be opened", "is back"])
    if name.endswith("-lost"):
        return expect_lost(piece, told, ["is lost", "is back"])
    if name.startswith("sine-"):
        return expect_sine(piece, SINE_HZ / 50 if card == "fast" else SINE_HZ / 1000)
    if name == "mono":
        return expect_frames(piece, range(1, NARROW_FRAMES + 1))
    if name == "eight":
        return expect_frames(piece, [(byte - 128) * 256 for byte in eight_bits()])
    if name == "aplay":
        return bool(runs(piece)), expect_runs(piece, "forward")[1] + " (the reference: no verdict)"
    if name.endswith("-suspended"):
        return expect_suspended(piece, told)
    if name in ("dmix-pause", "dmix-turn"):
        return expect_mixed(piece, name.split("-")[1])
    if name.endswith("-frozen"):
        return expect_frozen(piece, told)
    if name.endswith("-end"):
        return expect_end(piece)
    if name.endswith("-faded"):
        # Where one run follows another at once the ramps may meet in silence or not.
        joins = (2,) if "pause" in name else (1,) if "stop" in name else (1, 2)
        return expect_level(piece, joins)
    return expect_runs(piece, name.split("-")[1])


def table(folder, cards):
    failed = 0
    for card in cards:
        at = folder / card
        names = sorted(path.stem for path in (at / "out").glob("*.out"))
        alone = [at / "out" / f"{name}.wav" for name in names]
        if all(path.exists() for path in alone):
            heard = [read_frames(path) for path in alone]
        else:
            heard = list(pieces(read_frames(at / "heard.wav")))[1:]
        for name, piece in itertools.zip_longest(names, heard[:len(names)]):
            told = (at / "out" / f"{name}.out").read_text()
            fine, text = judge(card, name, piece or [], told)
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
