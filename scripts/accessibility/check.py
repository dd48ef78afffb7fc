"""Runs axe-core over every part of the studio's page, in both themes and at both widths. See scripts/check-accessibility."""

import pathlib
import sys
import tempfile

import support

WIDTHS = {"desktop": (1440, 900, False), "phone": (390, 844, True)}
THEMES = ("dark", "light")
BROKEN = """texture Input;
sampler InputSampler = sampler_state { Texture = <Input>; };
float amount < string Label = "Amount"; float Min = 0; float Max = 1; > = 0.5;
float3 tint < string Label = "Tint"; float Min = 0; float Max = 1; > = float3(1, 0.9, 0.8);
float angle < string Label = "Angle"; string Widget = "angle"; float Min = -180; float Max = 180; > = 0;
int mode < string Label = "Mode"; string Choices = "Off;On"; > = 1;
bool grey < string Label = "Grey"; > = false;
float plain < string Label = "Any number"; string Group = "Others"; > = 2;
float4 part(float2 uv : TEXCOORD0) : COLOR
{
    float4 picture = tex2D(InputSampler, uv);
    return float4(picture.rgb * amount * tint + angle * 0 + mode * 0 + plain * 0 + (grey ? 0.1 : 0), 1);
}
technique Part { pass P0 { PixelShader = compile ps_3_0 part(); } }
"""

# What is done before a part is looked at.
PARTS = {
    "the chain with wheels": "studio.select(studio.state.chain[0].id)",
    "curves": "studio.select(studio.state.chain[1].id)",
    "all kinds of controls": "studio.select(studio.state.chain[2].id)",
    "scopes": "document.getElementById('tab-scopes').click()",
    "stills": "document.getElementById('tab-stills').click()",
    "the effect's text": "document.getElementById('tab-text').click()",
    "more": "document.getElementById('tab-more').checkVisibility() && document.getElementById('tab-more').click()",
    "a problem": "studio.emit('problem', {text: 'a picture could not be decoded', details: []})",
    "the wipe": "studio.setCompare({way: 'wipe'})",
    "the difference": "studio.setCompare({way: 'difference'})",
    "the catalogue": "document.getElementById('chain-add').click()",
    "saving": "document.getElementById('look-save').click()",
    "opening": "document.getElementById('look-open').click()",
    "exporting": "document.getElementById('look-export').click()",
    "the keys": "document.getElementById('help-open').click()",
}


def look_at(browser, axe):
    """What axe-core finds on the page as it is."""
    browser.execute_script(axe)
    return browser.execute_async_script("""
        const done = arguments[0];
        axe.run(document, {resultTypes: ['violations']}).then(({violations}) => done(violations.map(
            ({id, help, nodes}) => ({id, help, nodes: nodes.map(({target, failureSummary}) => ({target, failureSummary}))}))));""")


def narrow_or_wide(browser, width, height, is_phone, theme):
    browser.execute_cdp_cmd("Emulation.setDeviceMetricsOverride",
                            {"width": width, "height": height, "deviceScaleFactor": 2 if is_phone else 1, "mobile": is_phone})
    browser.execute_cdp_cmd("Emulation.setTouchEmulationEnabled", {"enabled": is_phone})
    browser.execute_cdp_cmd("Emulation.setEmulatedMedia", {"features": [
        {"name": "prefers-color-scheme", "value": theme}, {"name": "prefers-reduced-motion", "value": "reduce"}]})


def check(folder, axe):
    clip = folder / "clip.mp4"
    support.make_clip(clip)
    effect = folder / "own.fx"
    effect.write_text(BROKEN)
    server = support.Server(clip, "cc3.fx", "qx-curves.fx", effect, looks=folder)
    browser = support.start_browser()
    findings = 0
    try:
        page = support.Page(browser, server.address)
        page.studio("studio.request('still', {name: '00:00:00:00'})")
        page.studio("studio.request('save', {file: 'a.look.toml'})")
        page.studio("studio.request('key', {link: studio.state.chain[0].id, name: 'saturation', frame: 0, values: [1]})")
        for name, (width, height, is_phone) in WIDTHS.items():
            for theme in THEMES:
                narrow_or_wide(browser, width, height, is_phone, theme)
                for part, action in PARTS.items():
                    page.studio("(document.getElementById('dialog').close(), %s)" % action)
                    browser.implicitly_wait(0)
                    page.run("return new Promise((done) => setTimeout(done, 250))")
                    found = look_at(browser, axe)
                    overflow = page.run("return document.documentElement.scrollWidth - innerWidth")
                    if overflow > 0:
                        print("%s, %s, %s: the page is %d pixels wider than the window" % (name, theme, part, overflow))
                        findings += 1
                    for violation in found:
                        findings += len(violation["nodes"])
                        print("%s, %s, %s: %s (%s)" % (name, theme, part, violation["help"], violation["id"]))
                        for node in violation["nodes"]:
                            print("    %s\n        %s" % (node["target"], node["failureSummary"].replace("\n", "\n        ")))
                page.studio("(document.getElementById('dialog').close(), studio.setCompare({way: 'none'}))")
        # And with an effect that does not compile.
        effect.write_text(BROKEN.replace("amount * tint", "amuont"))
        page.wait(lambda: page.studio("studio.state.chain[2].error") is not None, "the effect compiles")
        for width, theme in ((width, theme) for width in WIDTHS.values() for theme in THEMES):
            narrow_or_wide(browser, *width, theme)
            page.studio("(document.getElementById('tab-text').click(), 0)")
            for violation in look_at(browser, axe):
                findings += len(violation["nodes"])
                print("%d pixels, %s, a broken effect: %s (%s)" % (width[0], theme, violation["help"], violation["id"]))
                for node in violation["nodes"]:
                    print("    %s\n        %s" % (node["target"], node["failureSummary"]))
    finally:
        browser.quit()
        server.stop()
    count = len(WIDTHS) * len(THEMES) * (len(PARTS) + 1)
    print("%d parts of the page were looked at: %s" % (count, "nothing found" if findings == 0 else "%d findings" % findings))
    return 0 if findings == 0 else 1


def main():
    axe = pathlib.Path(sys.argv[1]).read_text()
    with tempfile.TemporaryDirectory(prefix="accessibility-") as folder:
        return check(pathlib.Path(folder), axe)


if __name__ == "__main__":
    sys.exit(main())
