"""The author's side of the studio's page: the text of an effect, its messages, and writing it."""

import shutil
import unittest

import support

TEXT = """// Leaves a part of the picture.
texture Input;
sampler InputSampler = sampler_state { Texture = <Input>; };
float amount < string Label = "Amount"; float Min = 0; float Max = 1; > = 0.5;
float4 part(float2 uv : TEXCOORD0) : COLOR
{
    float4 picture = tex2D(InputSampler, uv);
    return float4(picture.rgb * amount, picture.a);
}
technique Part { pass P0 { PixelShader = compile ps_3_0 part(); } }
"""
BROKEN = TEXT.replace("picture.rgb * amount", "picture.rgb * amuont")
WHITE = TEXT.replace("picture.rgb * amount", "float3(1, 1, 1)")


class AuthorTest(support.StudioTest):
    @classmethod
    def effects(cls):
        cls.file = cls.folder / "mine.fx"
        cls.file.write_text(TEXT)
        return [cls.file]

    def setUp(self):
        if self.file.read_bytes() != TEXT.encode():
            self.file.write_text(TEXT)
        self.page.click("#tab-text")
        self.page.wait(lambda: self.editor_text() == TEXT, "the text is not that of the file")
        self.page.wait(lambda: self.page.studio("studio.state.chain[0].error") is None, "the effect does not compile")

    def editor_text(self):
        return self.page.run("""
            const mirror = document.querySelector('.CodeMirror')?.CodeMirror;
            return mirror ? mirror.getValue() : document.querySelector('#text-place textarea').value;""")

    def type_text(self, text):
        """As the editor takes it from its user."""
        self.page.run("""
            const mirror = document.querySelector('.CodeMirror')?.CodeMirror;
            const field = document.querySelector('#text-place textarea');
            if (mirror) {
                mirror.setValue(arguments[0]);
            } else {
                field.value = arguments[0];
                field.dispatchEvent(new Event('input'));
            }""", text)

    def error_is_shown(self):
        self.page.wait(lambda: self.page.studio("studio.state.chain[0].error") is not None, "there is no error")
        messages = self.page.wait(
            lambda: self.browser.find_elements(support.By.CSS_SELECTOR, "#text-messages li.error"), "no message is shown")
        self.assertIn("amuont", messages[0].text)
        line = 1 + next(i for i, text in enumerate(BROKEN.split("\n")) if "amuont" in text)
        place = messages[0].find_element(support.By.CSS_SELECTOR, "button")
        self.assertTrue(place.text.startswith("%d:" % line), place.text)
        # The message stands at its line in the text too, and its place leads there.
        if self.page.run("return Boolean(document.querySelector('.CodeMirror'))"):
            marked = self.page.run("""
                const mirror = document.querySelector('.CodeMirror').CodeMirror;
                return mirror.lineInfo(arguments[0]).gutterMarkers?.messages?.title ?? ''""", line - 1)
            self.assertIn("amuont", marked)
            place.click()
            self.assertEqual(self.page.run("return document.querySelector('.CodeMirror').CodeMirror.getCursor().line"), line - 1)
        self.assertIn("mine.fx", self.page.text(".link-error") + self.page.text(".link-name"))

    def test_a_broken_save_shows_its_message_at_its_line_and_keeps_the_picture(self):
        before = self.page.codes(300, 200)["after"]
        self.assertNotEqual(before, self.page.codes(300, 200)["before"])
        self.file.write_text(BROKEN)
        self.error_is_shown()
        self.assertEqual(self.page.codes(300, 200)["after"], before)
        self.assertEqual(self.editor_text(), BROKEN)
        self.file.write_text(TEXT)
        self.page.wait(lambda: not self.browser.find_elements(support.By.CSS_SELECTOR, "#text-messages li"), "the message stays")

    def test_a_text_that_is_written_here_changes_the_file_and_the_picture(self):
        self.type_text(WHITE)
        self.page.wait(lambda: self.page.text("#text-status") == "changed, not written", "the change is not said")
        self.page.click("#text-write")
        self.page.wait(lambda: self.file.read_text() == WHITE, "the file was not written")
        self.page.wait(lambda: self.page.codes(300, 200)["after"][:3] == [255, 255, 255], "the picture is not white")
        self.assertEqual([path.name for path in self.folder.iterdir() if path.name.startswith(".")], [])

    def test_a_broken_text_that_is_written_here_shows_its_message(self):
        self.type_text(BROKEN)
        self.page.click("#text-write")
        self.error_is_shown()
        self.assertEqual(self.file.read_text(), BROKEN)

    def test_a_file_that_was_changed_outside_is_not_overwritten(self):
        outside = TEXT.replace("// Leaves", "// Keeps")
        self.type_text(WHITE)
        self.file.write_text(outside)
        self.page.wait(lambda: self.page.find("#text-conflict").is_displayed(), "the conflict is not shown")
        self.assertIn("// Keeps", self.page.text(".theirs"))
        self.page.click("#text-write")
        self.page.wait(lambda: self.page.find("#text-conflict").is_displayed(), "the conflict is gone")
        self.assertEqual(self.file.read_text(), outside)
        self.assertEqual(self.editor_text(), WHITE)
        # Mine over it, as I say so.
        self.page.click("#text-conflict button:last-of-type")
        self.page.wait(lambda: self.file.read_text() == WHITE, "it was not written")
        self.page.wait(lambda: not self.page.find("#text-conflict").is_displayed(), "the conflict stays")

    def test_the_text_of_the_file_may_be_taken_in_a_conflict(self):
        outside = TEXT.replace("// Leaves", "// Keeps")
        self.type_text(WHITE)
        self.file.write_text(outside)
        self.page.wait(lambda: self.page.find("#text-conflict").is_displayed(), "the conflict is not shown")
        self.page.click("#text-conflict .bar button:first-of-type")
        self.page.wait(lambda: self.editor_text() == outside, "the text was not taken")
        self.assertEqual(self.file.read_text(), outside)

    def test_a_file_keeps_its_line_ends(self):
        outside = TEXT.replace("// Leaves", "// Keeps")
        self.file.write_bytes(outside.replace("\n", "\r\n").encode())
        self.page.wait(lambda: self.editor_text() == outside, "the file was not read again")
        self.assertFalse(self.page.find("#text-write").is_enabled())
        self.type_text(WHITE)
        self.page.click("#text-write")
        written = WHITE.replace("\n", "\r\n").encode()
        self.page.wait(lambda: self.file.read_bytes() == written, "the line ends are others")
        self.page.wait(lambda: self.page.text("#text-status") == "written", "it is not said that it was written")

    def test_quick_writes_by_two_end_with_what_was_written_last(self):
        for _ in range(4):
            self.type_text(WHITE)
            self.page.click("#text-write")
            self.page.wait(lambda: self.file.read_text() == WHITE, "the file was not written")
            self.setUp()
        self.type_text(WHITE)
        self.page.click("#text-write")
        self.page.wait(lambda: self.page.codes(300, 200)["after"][:3] == [255, 255, 255], "the picture is not white")

    def test_a_full_disk_keeps_the_old_file_and_the_new_text(self):
        self.type_text(WHITE)
        with self.server.full_disk():
            self.page.click("#text-write")
            self.page.wait(lambda: "not written" in self.page.text("#text-status") and "too large" in self.page.text("#text-status"),
                           "nothing is said")
        self.assertEqual(self.file.read_text(), TEXT)
        self.assertEqual(self.editor_text(), WHITE)
        self.assertEqual([path.name for path in self.folder.iterdir() if path.name.startswith(".")], [])
        self.page.click("#text-write")
        self.page.wait(lambda: self.file.read_text() == WHITE, "it is not written when there is room again")

    def test_without_the_editor_the_text_is_a_plain_field(self):
        # What the page finds where the editor was not compiled in.
        folder = self.folder / "page"
        shutil.copytree(support.SOURCE / "tools/qxhost/studio/page", folder)
        (folder / "codemirror/lib").mkdir(parents=True)
        (folder / "codemirror/lib/codemirror.js").write_text("")
        with self.another(self.clip, self.file, page=folder) as page:
            page.click("#tab-text")
            field = page.wait(lambda: page.find("#text-place textarea"), "there is no field")
            self.assertFalse(page.run("return Boolean(document.querySelector('.CodeMirror'))"))
            page.wait(lambda: field.get_property("value") == TEXT, "the text is not that of the file")
            field.send_keys(support.Keys.CONTROL, "a", support.Keys.NULL, BROKEN)
            field.send_keys(support.Keys.CONTROL, "s")
            page.wait(lambda: self.file.read_text() == BROKEN, "the file was not written")
            place = page.wait(lambda: page.find("#text-messages li.error button"), "no message is shown")
            line = 1 + next(i for i, text in enumerate(BROKEN.split("\n")) if "amuont" in text)
            self.assertTrue(place.text.startswith("%d:" % line), place.text)
            place.click()
            before = page.run("const field = arguments[0]; return field.value.slice(0, field.selectionStart)", field)
            self.assertEqual(before.count("\n") + 1, line)
            field.send_keys(support.Keys.CONTROL, "a", support.Keys.NULL, WHITE)
            page.click("#text-write")
            page.wait(lambda: page.codes(300, 200)["after"][:3] == [255, 255, 255], "the picture is not white")

    def test_an_effect_that_draws_over_its_own_result_says_since_when(self):
        trail = self.folder / "trail.fx"
        trail.write_text(TEXT.replace("texture Input;", "texture Input;\ntexture Trail : PREVIOUSRESULT;\n"
                                      "sampler TrailSampler = sampler_state { Texture = <Trail>; };")
                         .replace("picture.rgb * amount", "lerp(tex2D(TrailSampler, uv).rgb, picture.rgb, amount)"))
        with self.another(self.clip, trail) as page:
            self.assertFalse(page.find(".link-note").is_displayed())
            page.go_to(12)
            page.wait(lambda: page.find(".link-note").is_displayed(), "it is not said")
            self.assertIn("since frame 12.", page.text(".link-note"))
            page.click("#on")
            page.wait(lambda: page.picture()["frame"] == 13, "frame 13 was not shown")
            self.assertIn("since frame 12.", page.text(".link-note"))
            page.go_to(40)
            page.wait(lambda: "since frame 40." in page.text(".link-note"), "the new place is not said")

    def test_the_time_of_each_pass_stands_beside_the_text(self):
        rows = self.page.wait(lambda: self.page.run(
            "return [...document.querySelectorAll('#text-passes tbody tr')].map((row) => row.textContent)"), "there are no times")
        self.assertEqual(len(rows), 1)
        self.assertRegex(rows[0], r"^P0\d+\.\d\d ms$")

    def test_the_tab_key_goes_through_the_text_and_on(self):
        self.page.find(".CodeMirror [contenteditable], #text-place textarea").send_keys(support.Keys.TAB)
        where = self.page.run("return document.activeElement.closest('#text-place') === null")
        self.assertTrue(where, "the text keeps the focus")
        self.assertEqual(self.editor_text(), TEXT)


if __name__ == "__main__":
    unittest.main()
